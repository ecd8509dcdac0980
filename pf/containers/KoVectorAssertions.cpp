#include "pf/containers/KoVectorAssertions.h"

#include "pf/oswrapper/CKoAsserter.h"

namespace
{

constexpr char FILE_TEXT[] = "TKoVector";

bool check(bool valid, const char* message, unsigned int line)
{
    if (!valid)
    {
        ::doAssert(line, FILE_TEXT, message);
    }
    return valid;
}

} // namespace

void KoVectorAssertions::doAssert(KoContainerAssertions::ErrorCode code, unsigned int line)
{
    KoContainerAssertions::reportAssertion(code, FILE_TEXT, line);
}

bool KoVectorAssertions::checkGet(int index, int size, unsigned int line)
{
    return check(index >= 0 && index < size, "Invalid parameter", line);
}

bool KoVectorAssertions::checkResize(int newSize, unsigned int line)
{
    return check(newSize >= 0, "Invalid parameter", line);
}

bool KoVectorAssertions::checkErase(int first, int last, int size, unsigned int line)
{
    return check(first >= 0 && last < size, "Index out of range", line) &&
           check(first <= last, "Invalid parameter", line);
}

bool KoVectorAssertions::checkInsert(int index, const void* value, int size, unsigned int line)
{
    return check(index >= 0 && index <= size, "Index our of range", line) &&
           check(value != nullptr, "Invalid parameter", line);
}
