#include "hugepages.h"

#include <sys/mman.h>

namespace {

constexpr uintptr_t HUGE_PAGE = uintptr_t(2) << 20;

// Asks for huge pages for the whole ones inside [begin, end); the kernel ignores what it cannot grant.
void advise(uintptr_t begin, uintptr_t end)
{
#ifdef MADV_HUGEPAGE
    begin = (begin + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    end &= ~(HUGE_PAGE - 1);
    if (end > begin)
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)begin;
    (void)end;
#endif
}

} // namespace

void reserveOnHugePages(std::vector<double> &values, uint64_t count)
{
    if (values.capacity() >= count)
        return;
    values.reserve(count);
    const auto data = reinterpret_cast<uintptr_t>(values.data());
    advise(data, data + count * sizeof(double));
}

void *mapHugePages(std::size_t bytes)
{
    // Mapped with a huge page to spare, so that the array can start on a huge-page border.
    const std::size_t length = (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    void *mapped = mmap(nullptr, length + HUGE_PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    const auto raw = reinterpret_cast<uintptr_t>(mapped);
    const uintptr_t begin = (raw + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    if (begin > raw)
        munmap(mapped, begin - raw);
    if (raw + HUGE_PAGE > begin)
        munmap(reinterpret_cast<void *>(begin + length), raw + HUGE_PAGE - begin);
    advise(begin, begin + length);
    return reinterpret_cast<void *>(begin);
}

void unmapHugePages(void *memory, std::size_t bytes)
{
    munmap(memory, (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE);
}
