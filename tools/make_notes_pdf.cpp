// make_notes_pdf: writes a deck folder (slides.txt and its PNG pages) as a PDF talk whose pages
// carry a notes page beside the slide, as a presenter's PDF made for a second screen does:
//
//   make_notes_pdf DECK_FOLDER OUT.pdf right|left|bottom|none
//
// Every page is the slide's page with a notes picture to its right, to its left or below it
// (none: the slide alone). Pages of one slide share one page label. The notes picture of a
// slide names the slide and has a coloured band of its own; every third slide has a blank notes
// picture, which stands for none.
// It exists to test and measure the packer's notes; the pictures are drawn with the project's
// own fonts.
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "display/win.h"
#include "display/winstd.h"
#include "png/png.h"

namespace {

struct Page {
    std::string file;
    bool continues;
    int slide;
};

[[noreturn]] void fail(const std::string& message) {
    fprintf(stderr, "ERROR! %s\n", message.c_str());
    exit(1);
}

std::vector<Page> readDeck(const std::string& folder) {
    std::ifstream list(folder + "/slides.txt");
    if (!list) fail("Could not open: " + folder + "/slides.txt");
    std::vector<Page> pages;
    std::string name;
    int flag, slide = 0;
    while (list >> name >> flag) {
        if (!flag) slide++;
        pages.push_back(Page{folder + "/" + name, flag != 0, slide});
    }
    if (pages.empty()) fail("No pages in " + folder + "/slides.txt");
    return pages;
}

// The notes picture of a slide: white, with a thin band of a colour of the slide's own along the
// bottom (so that notes pictures tell apart at a glance) and a few lines of dark text; or blank.
std::vector<Color> notesPicture(int width, int height, int slide) {
    std::vector<Color> picture((size_t)width * height, Color{255, 255, 255, 0});
    if (slide % 3 == 0) return picture;
    Color band = {(unsigned char)(slide * 67), (unsigned char)(slide * 151), (unsigned char)(slide * 37), 0};
    for (size_t i = (size_t)width * (height - height / 32); i < picture.size(); i++) picture[i] = band;
    win_width = width;
    win_height = height;
    win_size = width * height;
    win_data = picture.data();
    const Color ink = {20, 20, 20, 0};
    std::string lines[] = {"Notes for slide " + std::to_string(slide), "Say why this slide matters.",
                           "Then move on: " + std::to_string(slide * 7 % 60 + 1) + " seconds."};
    for (int i = 0; i < 3; i++) putBigText(lines[i].c_str(), 40, 60 + i * 40, ink, 2, 0, i > 0);
    return picture;
}

std::string deflated(const std::vector<unsigned char>& raw) {
    uLongf size = compressBound(raw.size());
    std::string out(size, '\0');
    if (compress2((Bytef*)&out[0], &size, raw.data(), raw.size(), 6) != Z_OK) fail("compression failed");
    out.resize(size);
    return out;
}

std::vector<unsigned char> rgb(const Color* pixels, size_t count) {
    std::vector<unsigned char> out;
    out.reserve(count * 3);
    for (size_t i = 0; i < count; i++) {
        out.push_back(pixels[i].r);
        out.push_back(pixels[i].g);
        out.push_back(pixels[i].b);
    }
    return out;
}

// A PDF file written object by object, with its cross-reference table at the end.
struct PdfWriter {
    std::string body = "%PDF-1.4\n";
    std::vector<size_t> offsets;  // of objects 1, 2, ...

    int reserve() {
        offsets.push_back(0);
        return (int)offsets.size();
    }
    void object(int number, const std::string& dictionary, const std::string& stream = "", bool has_stream = false) {
        offsets[number - 1] = body.size();
        body += std::to_string(number) + " 0 obj\n" + dictionary;
        if (has_stream) body += "\nstream\n" + stream + "\nendstream";
        body += "\nendobj\n";
    }
    std::string finish(int root) {
        size_t xref = body.size();
        std::ostringstream table;
        table << "xref\n0 " << offsets.size() + 1 << "\n0000000000 65535 f \n";
        for (size_t at : offsets) {
            char line[24];
            snprintf(line, sizeof line, "%010zu 00000 n \n", at);
            table << line;
        }
        table << "trailer\n<< /Size " << offsets.size() + 1 << " /Root " << root << " 0 R >>\nstartxref\n" << xref
              << "\n%%EOF\n";
        return body + table.str();
    }
};

int image(PdfWriter& pdf, const Color* pixels, int width, int height) {
    int number = pdf.reserve();
    std::string data = deflated(rgb(pixels, (size_t)width * height));
    pdf.object(number,
               "<< /Type /XObject /Subtype /Image /Width " + std::to_string(width) + " /Height " +
                   std::to_string(height) + " /ColorSpace /DeviceRGB /BitsPerComponent 8 /Filter /FlateDecode /Length " +
                   std::to_string(data.size()) + " >>",
               data, true);
    return number;
}

std::string place(const std::string& name, int x, int y, int width, int height) {
    return "q " + std::to_string(width) + " 0 0 " + std::to_string(height) + " " + std::to_string(x) + " " +
           std::to_string(y) + " cm /" + name + " Do Q\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) fail("Usage: make_notes_pdf DECK_FOLDER OUT.pdf right|left|bottom|none");
    std::string side = argv[3];
    if (side != "right" && side != "left" && side != "bottom" && side != "none")
        fail("The notes go right, left, bottom or none: " + side);
    std::vector<Page> pages = readDeck(argv[1]);

    PdfWriter pdf;
    int catalog = pdf.reserve(), tree = pdf.reserve();
    std::string kids, labels;
    int notes_image = 0, notes_slide = 0;
    for (size_t i = 0; i < pages.size(); i++) {
        Bitmap slide;
        if (!readPng(pages[i].file.c_str(), slide)) fail("Could not read the PNG file: " + pages[i].file);
        int w = slide.width, h = slide.height;
        int slide_image = image(pdf, slide.data, w, h);
        // One notes picture per slide, shared by its steps, as the notes of a slide are.
        if (side != "none" && notes_slide != pages[i].slide) {
            notes_slide = pages[i].slide;
            std::vector<Color> notes = notesPicture(w, h, notes_slide);
            notes_image = image(pdf, notes.data(), w, h);
        }
        // PDF coordinates grow upwards: the lower of two stacked pictures sits at y 0.
        int page_w = side == "right" || side == "left" ? 2 * w : w;
        int page_h = side == "bottom" ? 2 * h : h;
        std::string content = place("S", side == "left" ? w : 0, side == "bottom" ? h : 0, w, h);
        if (side != "none") content += place("N", side == "right" ? w : 0, 0, w, h);
        int content_number = pdf.reserve();
        pdf.object(content_number, "<< /Length " + std::to_string(content.size()) + " >>", content, true);
        int page = pdf.reserve();
        std::string xobjects = "/S " + std::to_string(slide_image) + " 0 R";
        if (side != "none") xobjects += " /N " + std::to_string(notes_image) + " 0 R";
        pdf.object(page, "<< /Type /Page /Parent " + std::to_string(tree) + " 0 R /MediaBox [0 0 " +
                             std::to_string(page_w) + " " + std::to_string(page_h) + "] /Contents " +
                             std::to_string(content_number) + " 0 R /Resources << /XObject << " + xobjects +
                             " >> >> >>");
        kids += std::to_string(page) + " 0 R ";
        labels += std::to_string(i) + " << /P (" + std::to_string(pages[i].slide) + ") >> ";
    }
    pdf.object(tree, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>");
    pdf.object(catalog, "<< /Type /Catalog /Pages " + std::to_string(tree) + " 0 R /PageLabels << /Nums [" + labels +
                            "] >> >>");
    std::ofstream out(argv[2], std::ios::binary);
    out << pdf.finish(catalog);
    if (!out.flush()) fail(std::string("Could not write: ") + argv[2]);
    printf("Wrote %zu pages to %s\n", pages.size(), argv[2]);
    return 0;
}
