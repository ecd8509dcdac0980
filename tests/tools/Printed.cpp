// A process to look at in the debugger: one object of each kind, with contents that are easy to recognise.
#include "pf/base/CKoString.h"
#include "pf/containers/CKoBuffer.h"
#include "pf/containers/CKoCircularByteBuffer.h"
#include "pf/containers/TKoConstRefCountedVector.h"
#include "pf/containers/TKoHashArray.h"
#include "pf/containers/TKoHashMap.h"
#include "pf/containers/TKoList.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoPtrVector.h"
#include "pf/containers/TKoQueue.h"
#include "pf/containers/TKoSmallVector.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/CKoMutex.h"
#include "pf/stream/CKoByteStream.h"

namespace
{

/// Where the debugger stops.
__attribute__((noinline)) void examine()
{
    asm volatile("");
}

template <class Container, class... Values>
Container filled(Values... values)
{
    Container container;
    (container.push_back(values), ...);
    return container;
}

} // namespace

int main()
{
    const CKoString text("Grüße \"7\"");
    const CKoString empty;
    const auto smallVector = filled<TKoSmallVector<CKoString>>("a", "b");
    const TKoSmallVector<int> emptyVector;
    const auto vector = filled<TKoVector<int>>(1, 2, 3);
    TKoSortedVector<int> sortedVector;
    sortedVector.insert(5);
    sortedVector.insert(4);
    TKoMap<CKoString, unsigned int> map;
    map.insert("pump", 1U);
    map.insert("valve", 2U);
    const auto list = filled<TKoList<CKoString>>("x", "y");
    const TKoConstRefCountedVector<int> sharedVector(filled<TKoSmallVector<int>>(8, 9));
    auto queue = filled<TKoQueue<int>>(1, 2, 3);
    queue.pop();
    TKoHashArray<CKoString, double> hashArray;
    hashArray["half"] = 0.5;
    TKoHashMap<CKoString> hashMap;
    hashMap[7U] = "seven";
    hashMap[0U] = "zero";
    TKoHashMap<int> numbers;
    numbers[1U] = -1;
    CKoBuffer buffer(3U);
    buffer.copyTo("\x01\x02\xFF", 3U, 0U);
    const CKoBuffer sameBuffer(buffer);
    CKoByteStream stream;
    stream << static_cast<unsigned char>(0xABU);
    CKoCircularByteBuffer ring(4U);
    ring.doWrite("\x01\x02\x03", 3U);
    unsigned char taken[3] = {};
    ring.doRead(taken, 2U);
    ring.doWrite("\x04\x05", 2U);
    CKoCriticalSection section;
    section.lock();
    CKoMutex mutex(true, CKoMutex::RECURSIVE);
    mutex.lock();
    mutex.lock();
    CKoMutex freeMutex(true, CKoMutex::NON_RECURSIVE);
    examine();
    mutex.unlock();
    mutex.unlock();
    section.unlock();
    return 0;
}
