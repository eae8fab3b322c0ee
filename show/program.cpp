#include "show/program.h"

#include <elf.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

// The fields compared, in the first bytes that 32- and 64-bit headers share.
static const size_t kHeadBytes = 20;

static uint16_t field16(const unsigned char* head, size_t at) {
    uint16_t value;
    memcpy(&value, head + at, 2);
    return value;
}

// This process's own header, read once from its program file.
static const unsigned char* ownHead() {
    static unsigned char head[kHeadBytes];
    static bool read = false;
    if (!read) {
        FILE* self = fopen("/proc/self/exe", "rb");
        if (!self || fread(head, 1, kHeadBytes, self) != kHeadBytes) memset(head, 0, sizeof head);
        if (self) fclose(self);
        read = true;
    }
    return head;
}

const char* programProblem(const unsigned char* head, size_t n) {
    if (n < kHeadBytes || memcmp(head, ELFMAG, SELFMAG) != 0) return "not a program (no ELF header)";
    const unsigned char* own = ownHead();
    // e_type and e_machine follow the 16 identification bytes in both classes; they are read in
    // this machine's byte order, which is the file's once its byte order matched.
    if (head[EI_CLASS] != own[EI_CLASS] || head[EI_DATA] != own[EI_DATA] || field16(head, 18) != field16(own, 18))
        return "a program for another kind of machine";
    uint16_t type = field16(head, 16);
    if (type != ET_EXEC && type != ET_DYN) return "an ELF file that is not a program";
    return nullptr;
}
