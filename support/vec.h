// vec: the growable array used everywhere. Storage comes from smart_realloc / smart_free;
// elements are moved as raw bytes when the array grows, so T must be trivially relocatable.
#pragma once
#include <climits>
#include <cstring>
#include <new>
#include <type_traits>

#include "support/alloc.h"

// The capacity that holds n elements by the growth rule 2, 3, 5, 8, 12, 18, 27, 41, ... starting
// from cap, never above most (computed in 64 bits, so the rule's last step cannot overflow).
inline long long grownCapacity(long long cap, long long n, long long most) {
    long long c = cap;
    if (c == 0)
        c = n > 2 ? n : 2;
    else
        while (c < n) c = (c * 3 + 1) >> 1;
    return c < most ? c : most;
}

template <class T>
struct vec {
    T* data = nullptr;
    int size = 0;
    int cap = 0;

    vec() {}
    vec(const vec&) = delete;
    vec& operator=(const vec&) = delete;
    ~vec() { release(); }

    T& operator[](int i) { return data[i]; }
    const T& operator[](int i) const { return data[i]; }
    T& last() { return data[size - 1]; }
    T* begin() { return data; }
    T* end() { return data + size; }
    const T* begin() const { return data; }
    const T* end() const { return data + size; }

    // The most elements a vec holds: its count is an int and its byte size an unsigned.
    static constexpr long long max_size = (long long)(UINT_MAX / sizeof(T)) < INT_MAX
                                              ? (long long)(UINT_MAX / sizeof(T))
                                              : (long long)INT_MAX;

    // Capacity grows 2, 3, 5, 8, 12, 18, 27, 41, ... until it holds n; a request beyond max_size
    // throws Exception_MemOut at once.
    void reserve(long long n) {
        if (n <= cap) return;
        if (n > max_size) throw Exception_MemOut();
        int c = (int)grownCapacity(cap, n, max_size);
        data = (T*)smart_realloc((char*)data, (unsigned)(cap * sizeof(T)), (unsigned)(c * sizeof(T)));
        cap = c;
    }

    T& push(const T& x) {
        if (size >= cap) {
            T copy = x;  // x may live in the old storage
            reserve(size + 1LL);
            return *new (data + size++) T(copy);
        }
        return *new (data + size++) T(x);
    }

    // Appends a value-initialised element and returns it.
    T& push() {
        reserve(size + 1LL);
        return *new (data + size++) T();
    }

    // Grows to n elements (new ones value-initialised) or drops the elements past n.
    void resize(int n) {
        reserve(n);
        if (std::is_trivially_default_constructible<T>::value && size < n) {
            memset((void*)(data + size), 0, sizeof(T) * (size_t)(n - size));  // value-initialised: zero
            size = n;
        }
        while (size < n) new (data + size++) T();
        while (size > n) data[--size].~T();
    }

    // Drops the elements and grows back to n value-initialised ones.
    void assignZero(int n) {
        clear();
        resize(n);
    }

    // Drops the elements, keeps the storage.
    void clear() { resize(0); }

    // Exchanges contents with other (storage included); nothing is copied.
    void swap(vec& other) {
        T* d = data;
        data = other.data, other.data = d;
        int n = size;
        size = other.size, other.size = n;
        int c = cap;
        cap = other.cap, other.cap = c;
    }

    // Drops the elements and gives the storage back.
    void release() {
        if (cap > 0) {
            while (size > 0) data[--size].~T();
            smart_free((char*)data, (unsigned)(cap * sizeof(T)));
            data = nullptr;
            cap = 0;
        }
        size = 0;
    }
};

template <class A, class B>
struct Pair {
    A first;
    B second;
};
