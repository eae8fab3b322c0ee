#include "archives.h"

#include "run.h"

std::string writeArchiveFile(const std::string& path, ArchiveLayout layout, const std::string& prefix,
                             const vec<vec<unsigned char> >& backgrounds, const vec<ScreenRecord>& screens,
                             const vec<bool>& flags, const ShowNotes* notes) {
    writeFileBytes(path, prefix);
    File out;
    out.open(path.c_str(), "a");
    writeArchive(out, layout, prefix.size(), backgrounds, screens, flags, notes);
    out.close();
    return readFileBytes(path);
}

const char* readArchiveNotes(const std::string& path, ArchiveIndex& index, ShowNotes& notes) {
    File in;
    in.open(path.c_str(), "rb");
    const char* error = readIndex(in, ARCHIVE_SEPARATE, index);
    return error ? error : readNotes(in, index, notes);
}
