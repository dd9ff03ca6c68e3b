#ifndef HUGEPAGES_H
#define HUGEPAGES_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

// A fresh 4 KiB page costs a fault, and on a paravirtualised MMU those faults cost more than
// filling the page; transparent huge pages, where the kernel offers them on request, take one
// fault per 2 MiB.

/// Reserves room for count values and asks for huge pages for them. Throws as reserve() does.
void reserveOnHugePages(std::vector<double> &values, uint64_t count);

/// Memory of its own for long scratch arrays, on huge pages where offered: the allocator's
/// heap would hand out pages it trimmed and faults in again, in 4 KiB steps. Null when none.
void *mapHugePages(std::size_t bytes);
void unmapHugePages(void *memory, std::size_t bytes);

/// An allocator that maps long arrays with mapHugePages() and leaves short ones to operator new.
template<class T>
struct HugePageAllocator
{
    using value_type = T;
    static constexpr std::size_t MAPPED = std::size_t(1) << 20; // bytes from which arrays are mapped

    HugePageAllocator() = default;
    template<class U>
    HugePageAllocator(const HugePageAllocator<U> &) {}

    T *allocate(std::size_t n)
    {
        if (n > SIZE_MAX / sizeof(T))
            throw std::bad_alloc();
        if (n * sizeof(T) < MAPPED)
            return static_cast<T *>(::operator new(n * sizeof(T)));
        if (void *memory = mapHugePages(n * sizeof(T)))
            return static_cast<T *>(memory);
        throw std::bad_alloc();
    }
    void deallocate(T *p, std::size_t n)
    {
        if (n * sizeof(T) < MAPPED)
            ::operator delete(p);
        else
            unmapHugePages(p, n * sizeof(T));
    }
    template<class U>
    bool operator==(const HugePageAllocator<U> &) const { return true; }
    template<class U>
    bool operator!=(const HugePageAllocator<U> &) const { return false; }
};

template<class T>
using ScratchVector = std::vector<T, HugePageAllocator<T>>;

#endif
