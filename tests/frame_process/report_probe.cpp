// Inserts beyond the end of a vector and goes on.
// Prints the bounds of the inserting function's code first, and the vector's content at the end.

#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "pf/containers/TKoVector.h"

extern "C"
{
    // The linker's names for the bounds of the section.
    extern const char __start_inserting_code[];
    extern const char __stop_inserting_code[];
}

namespace
{

__attribute__((noinline, section("inserting_code"))) void insertBeyondEnd(TKoVector<int>& numbers)
{
    numbers.insert(static_cast<int>(numbers.size()) + 1, 99);
    // Keeps the call above from being the function's last action, which would take its frame off the stack.
    std::fflush(stdout);
}

} // namespace

int main()
{
    std::printf("%" PRIxPTR " %" PRIxPTR "\n", reinterpret_cast<std::uintptr_t>(__start_inserting_code),
                reinterpret_cast<std::uintptr_t>(__stop_inserting_code));
    std::fflush(stdout);
    TKoVector<int> numbers{1, 2, 3};
    insertBeyondEnd(numbers);
    for (const int number : numbers)
    {
        std::printf("%d ", number);
    }
    std::printf("goes on\n");
    return 0;
}
