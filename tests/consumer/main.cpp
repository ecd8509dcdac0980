// A client of the installed library: text, a map, and a broken precondition that is survived.
#include "pf/base/CKoString.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoVector.h"
#include <cstdio>

int main()
{
    TKoMap<CKoString, unsigned int> counts;
    counts.insert("pump", 1);
    counts.insert("valve", 2);

    TKoVector<int> readings;
    readings.insert(1, 42); // out of range: reported, nothing inserted

    const int index = counts.find("valve");
    const bool works = index >= 0 && counts.get(index)->second == 2 && readings.empty();
    std::puts(works ? "consumer works" : "consumer FAILED");
    return works ? 0 : 1;
}
