// memory.cpp: the one path through which the module allocates for records,
// and the count of allocations that failed.
#include <cstring>

#include "rsv_internal.h"

namespace {

unsigned long failures = 0;

} // namespace

namespace rsv {

void *allocRecord(int count, size_t size, const char *caller) noexcept
{
    void *p = miscFuncs.allocZeroed ? miscFuncs.allocZeroed(count, size, caller)
                                    : (count > 0 ? std::calloc(static_cast<size_t>(count), size) : nullptr);
    if (!p)
        ++failures;
    return p;
}

char *dupText(const char *text) noexcept
{
    if (!text)
        return nullptr;
    char *p = miscFuncs.dupString ? miscFuncs.dupString(text) : strdup(text);
    if (!p)
        ++failures;
    return p;
}

unsigned long allocationFailures() noexcept
{
    return failures;
}

void noteAllocationFailure() noexcept
{
    ++failures;
}

} // namespace rsv
