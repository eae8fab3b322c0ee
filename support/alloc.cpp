#include "support/alloc.h"

#include <cstring>

static const unsigned POOL_CLASSES = 32;
static const unsigned CHUNK_UNITS = 10000;

// A free block holds the link to the next one in its first bytes, and blocks hold pointers and
// doubles: every block carved from a chunk is rounded up to whole pointers, which keeps them all
// pointer-aligned (the 1..4-byte class takes 8 bytes on 64-bit systems).
static const unsigned PTR_UNITS = sizeof(void*) / sizeof(unsigned);

static inline unsigned carvedUnits(unsigned units) { return (units + PTR_UNITS - 1) / PTR_UNITS * PTR_UNITS; }

static inline unsigned sizeClass(unsigned size) { return ((size + 3) >> 2) - 1; }

static inline void pushFree(unsigned k, char* ptr) {
    *(void**)ptr = vec_mempool->free_lists[k];
    vec_mempool->free_lists[k] = ptr;
}

char* smart_realloc(char* ptr, unsigned old_size, unsigned new_size) {
    if (!vec_mempool) return nullptr;
    char* block = nullptr;
    if (new_size != 0) {
        unsigned units = (new_size + 3) >> 2;
        unsigned k = units - 1;
        if (k >= POOL_CLASSES) {
            block = (char*)malloc(new_size);
            if (!block) throw Exception_MemOut();
        } else if (vec_mempool->free_lists[k]) {
            block = (char*)vec_mempool->free_lists[k];
            vec_mempool->free_lists[k] = *(void**)block;
        } else {
            block = (char*)vec_mempool->chunks.alloc(carvedUnits(units));
        }
        if (ptr) memcpy(block, ptr, old_size < new_size ? old_size : new_size);
    }
    if (old_size != 0 && vec_mempool->free_lists) {
        unsigned k = sizeClass(old_size);
        if (k < POOL_CLASSES)
            pushFree(k, ptr);
        else if (ptr)
            free(ptr);
    }
    return block;
}

void smart_free(char* ptr, unsigned size) {
    if (!vec_mempool || size == 0 || !vec_mempool->free_lists) return;
    unsigned k = sizeClass(size);
    if (k < POOL_CLASSES)
        pushFree(k, ptr);
    else if (ptr)
        free(ptr);
}

Initializer_mempool::Initializer_mempool() {
    MemPool* pool = new MemPool{nullptr, PoolChunks(), POOL_CLASSES};
    pool->chunks.data = (unsigned*)malloc(CHUNK_UNITS * sizeof(unsigned));
    if (!pool->chunks.data) {
        delete pool;
        throw Exception_MemOut();
    }
    pool->free_lists = (void**)malloc(512);
    if (!pool->free_lists) {
        free(pool->chunks.data);
        delete pool;
        throw Exception_MemOut();
    }
    for (unsigned k = 0; k < POOL_CLASSES; k++) pool->free_lists[k] = nullptr;
    vec_mempool = pool;
}

Finalizer_mempool::~Finalizer_mempool() {
    MemPool* pool = vec_mempool;
    if (!pool) return;
    free(pool->chunks.data);
    for (PoolChunks* p = pool->chunks.prev; p; p = p->prev) free(p->data);
    PoolChunks* p = pool->chunks.prev;
    while (p) {
        PoolChunks* next = p->prev;
        delete p;
        p = next;
    }
    pool->chunks.prev = nullptr;
    free(pool->free_lists);
    delete pool;
    vec_mempool = nullptr;
}
