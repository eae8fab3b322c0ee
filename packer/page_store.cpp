#include "packer/page_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "packer/deck.h"

PageStore::~PageStore() {
    if (fd >= 0) close(fd);
}

const char* PageStore::open(const char* folder) {
    folder_ = folder;
    fd = ::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {  // a file system without unnamed files: a named one, unlinked at once
        char path[4096];
        snprintf(path, sizeof path, "%s/.pack_slides-pages-XXXXXX", folder);
        fd = mkostemp(path, O_CLOEXEC);
        if (fd >= 0) unlink(path);
    }
    if (fd < 0) return errorf("Could not make a temporary file in %s: %s", folder, strerror(errno));
    return nullptr;
}

const char* PageStore::put(const vec<unsigned char>& bytes, Blob& blob) {
    blob.at = end;
    blob.size = bytes.size;
    for (int done = 0; done < bytes.size;) {
        ssize_t n = pwrite(fd, bytes.data + done, (size_t)(bytes.size - done), end + done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return errorf("Could not write the temporary file in %s: %s", folder_, strerror(n < 0 ? errno : ENOSPC));
        done += (int)n;
    }
    end += bytes.size;
    return nullptr;
}

const char* PageStore::get(const Blob& blob, vec<unsigned char>& out) const {
    out.clear();
    out.resize(blob.size);
    for (int done = 0; done < blob.size;) {
        ssize_t n = pread(fd, out.data + done, (size_t)(blob.size - done), blob.at + done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return errorf("Could not read the temporary file in %s: %s", folder_, n < 0 ? strerror(errno) : "cut short");
        done += (int)n;
    }
    return nullptr;
}
