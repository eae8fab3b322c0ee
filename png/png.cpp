#include "png/png.h"

#include <png.h>

#include <errno.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "support/alloc.h"

namespace {

char last_error[256];

void setError(const char* message) { snprintf(last_error, sizeof last_error, "%s", message); }

// libpng errors are kept for pngLastError rather than printed; warnings are dropped. A reason
// already given by the file's own reader or writer is kept.
void onError(png_structp png, png_const_charp message) {
    if (!last_error[0]) setError(message);
    png_longjmp(png, 1);
}

// Reads and writes of the file that say why they failed: the system's reason, or a file cut short.
void readData(png_structp png, png_bytep data, size_t length) {
    FILE* file = (FILE*)png_get_io_ptr(png);
    if (fread(data, 1, length, file) == length) return;
    setError(ferror(file) ? strerror(errno) : "the file ends early (cut short)");
    png_error(png, last_error);
}

void writeData(png_structp png, png_bytep data, size_t length) {
    if (fwrite(data, 1, length, (FILE*)png_get_io_ptr(png)) == length) return;
    setError(strerror(errno));
    png_error(png, last_error);
}

void flushData(png_structp png) {
    if (fflush((FILE*)png_get_io_ptr(png)) == 0) return;
    setError(strerror(errno));
    png_error(png, last_error);
}

void onWarning(png_structp, png_const_charp) {}

void* allocOrThrow(size_t bytes) {
    void* p = malloc(bytes ? bytes : 1);
    if (!p) throw Exception_MemOut();
    return p;
}

// Row pointers into one block of height rows.
struct Rows {
    png_bytep* rows = nullptr;
    png_bytep block = nullptr;

    void allocate(size_t height, size_t row_bytes) {
        rows = (png_bytep*)allocOrThrow(height * sizeof(png_bytep));
        block = (png_bytep)allocOrThrow(height * row_bytes);
        for (size_t y = 0; y < height; y++) rows[y] = block + y * row_bytes;
    }
    ~Rows() {
        free(rows);
        free(block);
    }
};

// Everything one read owns, released on every path. It lives outside the function that calls
// setjmp, so its fields keep their values after a jump back.
struct ReadState {
    FILE* file = nullptr;
    png_structp png = nullptr;
    png_infop info = nullptr;
    Rows rows;
    ~ReadState() {
        if (png) png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        if (file) fclose(file);
    }
};

struct WriteState {
    FILE* file = nullptr;
    png_structp png = nullptr;
    png_infop info = nullptr;
    Rows rows;
    ~WriteState() {
        if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
        if (file) fclose(file);
    }
};

bool hasSignature(FILE* file) {
    unsigned char signature[8];
    size_t got = fread(signature, 1, 8, file);
    if (got == 8 && png_sig_cmp(signature, 0, 8) == 0) return true;
    setError(ferror(file) ? strerror(errno) : "not a PNG file (no PNG signature)");
    return false;
}

// Reads the whole image as 8-bit samples into s.rows.
bool readImage(ReadState& s) {
    if (setjmp(png_jmpbuf(s.png))) return false;
    png_set_read_fn(s.png, s.file, readData);
    png_set_sig_bytes(s.png, 8);
    // Only the chunks that make the pixels are read (IHDR, PLTE, tRNS, IDAT): text, colour
    // profiles and other metadata are skipped unread, so a text chunk that declares gigabytes
    // does not make libpng allocate them.
    png_set_keep_unknown_chunks(s.png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
#ifdef SLIDES_FUZZING
    // Fuzz builds: ignore chunk checksums so that mutated files reach the decoder.
    png_set_crc_action(s.png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
#endif
    png_read_info(s.png, s.info);
    png_uint_32 width = png_get_image_width(s.png, s.info);
    png_uint_32 height = png_get_image_height(s.png, s.info);
    if (!sizeWithinLimits(width, height)) {
        snprintf(last_error, sizeof last_error, "image size %ux%u beyond the limits (%d a side, %lld pixels)",
                 (unsigned)width, (unsigned)height, kMaxSide, kMaxPixels);
        return false;
    }
    png_set_expand(s.png);
    png_set_strip_16(s.png);
    png_set_interlace_handling(s.png);
    png_read_update_info(s.png, s.info);
    s.rows.allocate(height, png_get_rowbytes(s.png, s.info));
    png_read_image(s.png, s.rows.rows);
    return true;
}

// Converts the rows by colour type (after expansion: grey, grey + alpha, RGB, RGB + alpha).
bool convertRows(const Rows& rows, int colour_type, int width, int height, Color* out) {
    int channels;
    switch (colour_type) {
        case PNG_COLOR_TYPE_GRAY: channels = 1; break;
        case PNG_COLOR_TYPE_GRAY_ALPHA: channels = 2; break;
        case PNG_COLOR_TYPE_RGB: channels = 3; break;
        case PNG_COLOR_TYPE_RGB_ALPHA: channels = 4; break;
        default: return false;
    }
    bool grey = channels < 3, alpha = channels % 2 == 0;
    for (int y = 0; y < height; y++) {
        const png_byte* p = rows.rows[y];
        Color* row = out + (size_t)y * width;
        for (int x = 0; x < width; x++, p += channels) {
            unsigned char r = p[0], g = grey ? p[0] : p[1], b = grey ? p[0] : p[2];
            row[x] = Color{r, g, b, (unsigned char)(alpha ? 255 - p[channels - 1] : 0)};
        }
    }
    return true;
}

bool writeImage(WriteState& s, const Bitmap& bitmap) {
    if (setjmp(png_jmpbuf(s.png))) return false;
    png_set_write_fn(s.png, s.file, writeData, flushData);
    png_set_IHDR(s.png, s.info, bitmap.width, bitmap.height, 8, PNG_COLOR_TYPE_RGB_ALPHA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(s.png, s.info);
    png_write_image(s.png, s.rows.rows);
    png_write_end(s.png, nullptr);
    return true;
}

void fillRgbaRows(Rows& rows, const Bitmap& bitmap) {
    rows.allocate(bitmap.height, (size_t)bitmap.width * 4);
    for (int y = 0; y < bitmap.height; y++) {
        png_bytep p = rows.rows[y];
        for (int x = 0; x < bitmap.width; x++, p += 4) {
            Color c = bitmap.at(x, y);
            p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = (png_byte)(255 - c.transparency);
        }
    }
}

}  // namespace

const char* pngLastError() { return last_error; }

bool readPng(const char* path, Bitmap& bitmap) {
    last_error[0] = 0;
    ReadState s;
    s.file = fopen(path, "rb");
    if (!s.file) setError(strerror(errno));
    if (!s.file || !hasSignature(s.file)) return false;
    s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (s.png) s.info = png_create_info_struct(s.png);
    if (!s.info) setError("out of memory");
    bool ok = s.info && readImage(s);
    if (ok) {
        int width = (int)png_get_image_width(s.png, s.info);
        int height = (int)png_get_image_height(s.png, s.info);
        Color* pixels = allocPixels(width, height);
        ok = convertRows(s.rows, png_get_color_type(s.png, s.info), width, height, pixels);
        if (ok) {
            bitmap.data = pixels;
            bitmap.width = width;
            bitmap.height = height;
            return true;
        }
        free(pixels);
        snprintf(last_error, sizeof last_error, "unexpected colour type");
    }
    resetBitmap(bitmap);
    return false;
}

bool writePng(const char* path, const Bitmap& bitmap) {
    last_error[0] = 0;
    WriteState s;
    s.file = fopen(path, "wb");
    if (!s.file) {
        setError(strerror(errno));
        return false;
    }
    s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (s.png) s.info = png_create_info_struct(s.png);
    if (!s.info) {
        setError("out of memory");
        return false;
    }
    fillRgbaRows(s.rows, bitmap);
    if (!writeImage(s, bitmap)) return false;
    FILE* file = s.file;
    s.file = nullptr;
    if (fclose(file) == 0) return true;
    setError(strerror(errno));
    return false;
}
