// The viewer's whole archive path over a file of arbitrary bytes: trailer, index, records,
// decoding, compositing and the compact images, in view mode so that nothing is written. The
// first input byte picks the layout (separate file or appended to a program); the rest is the file.
#include <cstdint>
#include <cstdlib>

#include "show/unpack.h"
#include "fuzz/memfile.h"
#include "support/alloc.h"

static void releaseShow(Show& show) {
    for (int i = 0; i < show.images.size; i++) releaseImage(show.images[i]);
    show.images.release();
    show.flags.release();
}

// A show that unpacked has one image per screen, each the size of the first.
static void checkShow(const Show& show, const ArchiveIndex& index) {
    if (show.images.size != index.ns || show.flags.size != index.ns) abort();
    for (int i = 0; i < show.images.size; i++) {
        const Image& image = show.images[i];
        if (image.width != show.images[0].width || image.height != show.images[0].height) abort();
        if (imagePixelCount(image) != image.width * image.height) abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    ArchiveLayout layout = data[0] & 1 ? ARCHIVE_APPENDED : ARCHIVE_SEPARATE;
    File archive;
    archive.open(memFile(data + 1, size - 1), READ, false);
    ArchiveIndex index;
    Show show;
    try {
        const char* error = readIndex(archive, layout, index);
        if (!error) error = unpackShow(archive, index, RUN_VIEW, show, nullptr);
        if (!error) checkShow(show, index);
    } catch (Exception_EOF&) {
    } catch (Exception_MemOut&) {
    }
    releaseShow(show);
    return 0;
}
