#ifndef HUGEPAGES_H
#define HUGEPAGES_H

#include <cstdint>
#include <vector>

/// Reserves room for count values and, where the kernel offers transparent huge pages on request,
/// asks for them: a fresh 4 KiB page costs a fault, and on a paravirtualised MMU those faults cost
/// more than filling the page. Short arrays are left to the allocator. Throws as reserve() does.
void reserveOnHugePages(std::vector<double> &values, uint64_t count);

/// values resized to count on huge pages where offered, each new value set to value.
void resizeOnHugePages(std::vector<double> &values, uint64_t count, double value = 0.0);

#endif
