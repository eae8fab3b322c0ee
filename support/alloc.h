// Sized allocation: small blocks from a pool of 32 free lists, large ones from malloc.
#pragma once
#include <cstddef>
#include <cstdlib>

struct Exception_MemOut {};
struct Exception_EOF {};

char* smart_realloc(char* ptr, unsigned old_size, unsigned new_size);
void smart_free(char* ptr, unsigned size);

template <class T>
class Allocator {
public:
    virtual T* alloc(unsigned n) = 0;
    virtual ~Allocator() {}
};

// Hands out units from chunks of CHUNK units; requests above MAX_REQ get a block of their own.
template <class T, unsigned CHUNK, unsigned MAX_REQ>
class StackAlloc : public Allocator<T> {
public:
    T* data = nullptr;
    StackAlloc* prev = nullptr;
    unsigned used = 0;
    bool owner = false;

    StackAlloc() {}
    StackAlloc(T* d, StackAlloc* p, unsigned u, bool o) : data(d), prev(p), used(u), owner(o) {}

    T* alloc(unsigned n) override {
        if (used + n > CHUNK) return alloc_helper(n);
        T* p = data + used;
        used += n;
        return p;
    }

    T* alloc_helper(unsigned n);

    ~StackAlloc() override {
        if (!owner) return;
        free(data);
        for (StackAlloc* p = prev; p; p = p->prev) free(p->data);
        StackAlloc* p = prev;
        while (p) {
            StackAlloc* next = p->prev;
            delete p;
            p = next;
        }
    }
};

template <class T, unsigned CHUNK, unsigned MAX_REQ>
T* StackAlloc<T, CHUNK, MAX_REQ>::alloc_helper(unsigned n) {
    if (n <= MAX_REQ) {
        StackAlloc* node = new StackAlloc(data, prev, used, false);
        T* chunk = (T*)malloc(sizeof(T) * CHUNK);
        if (!chunk) {
            delete node;
            throw Exception_MemOut();
        }
        data = chunk;
        used = n;
        prev = node;
        return chunk;
    }
    T* block = (T*)malloc(sizeof(T) * (size_t)n);
    if (!block) throw Exception_MemOut();
    prev = new StackAlloc(block, prev, 0xFFFFFFFFu, false);
    return block;
}

typedef StackAlloc<unsigned int, 10000, 1000> PoolChunks;

// The process-wide pool: free-list heads (room for 128, 32 used), the chunk allocator, the class count.
struct MemPool {
    void** free_lists;
    PoolChunks chunks;
    unsigned classes;
};

extern MemPool* vec_mempool;

class Initializer_mempool {
public:
    Initializer_mempool();
};

class Finalizer_mempool {
public:
    ~Finalizer_mempool();
};
