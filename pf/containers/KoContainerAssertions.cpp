#include "pf/containers/KoContainerAssertions.h"

#include "pf/containers/KoConstRefCountedVectorAssertions.h"
#include "pf/containers/KoListAssertions.h"
#include "pf/containers/KoPtrVectorAssertions.h"
#include "pf/containers/KoQueueAssertions.h"
#include "pf/oswrapper/CKoAsserter.h"

namespace
{

const char* messageOf(KoContainerAssertions::ErrorCode code)
{
    switch (code)
    {
    case KoContainerAssertions::IndexOutOfRange:
        return "Index our of range";
    case KoContainerAssertions::InvalidParameter:
        return "Invalid parameter";
    case KoContainerAssertions::InvalidIteratorPosition:
        return "Invalid iterator position";
    case KoContainerAssertions::InvalidInternalState:
        break;
    }
    return "Invalid internal state";
}

} // namespace

void KoContainerAssertions::reportAssertion(ErrorCode code, const char* file, unsigned int line)
{
    doAssert(line, file, messageOf(code));
}

void KoContainerAssertions::reportAssertion(ErrorCode code)
{
    reportAssertion(code, "<unknown file>", 0);
}

void KoPtrVectorAssertions::doAssert(KoContainerAssertions::ErrorCode code, unsigned int line)
{
    KoContainerAssertions::reportAssertion(code, "TKoPtrVector", line);
}

void KoQueueAssertions::doAssert(KoContainerAssertions::ErrorCode code, unsigned int line)
{
    KoContainerAssertions::reportAssertion(code, "TKoQueue", line);
}

void KoConstRefCountedVectorAssertions::doAssert(KoContainerAssertions::ErrorCode code, unsigned int line)
{
    KoContainerAssertions::reportAssertion(code, "TKoConstRefCountedVector", line);
}

void KoListAssertions::doAssert(KoContainerAssertions::ErrorCode code, unsigned int line)
{
    KoContainerAssertions::reportAssertion(code, "TKoList", line);
}

bool KoListAssertions::checkNode(const CKoListNodeBase* node, unsigned int line)
{
    if (node != nullptr)
    {
        return true;
    }
    doAssert(KoContainerAssertions::InvalidIteratorPosition, line);
    return false;
}
