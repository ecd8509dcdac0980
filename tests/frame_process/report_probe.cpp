// Inserts beyond the end of a vector, goes on, and prints the vector's content at the end.

#include <cstdio>

#include "pf/containers/TKoVector.h"

int main()
{
    TKoVector<int> numbers{1, 2, 3};
    numbers.insert(static_cast<int>(numbers.size()) + 1, 99);
    for (const int number : numbers)
    {
        std::printf("%d ", number);
    }
    std::printf("goes on\n");
    return 0;
}
