#include "hugepages.h"

#include <sys/mman.h>

namespace {

constexpr uintptr_t HUGE_PAGE = uintptr_t(2) << 20;

} // namespace

void reserveOnHugePages(std::vector<double> &values, uint64_t count)
{
    if (values.capacity() >= count)
        return;
    values.reserve(count);
#ifdef MADV_HUGEPAGE
    // Only whole huge pages inside the buffer; the kernel refuses the advice where it has none.
    const auto data = reinterpret_cast<uintptr_t>(values.data());
    const uintptr_t begin = (data + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    const uintptr_t end = (data + count * sizeof(double)) & ~(HUGE_PAGE - 1);
    if (end > begin)
        madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
#endif
}

void resizeOnHugePages(std::vector<double> &values, uint64_t count, double value)
{
    reserveOnHugePages(values, count);
    values.resize(count, value);
}
