// The library's types among those of the standard library.
#include "pf/base/CKoString.h"
#include "pf/containers/TKoHashArray.h"
#include "pf/containers/TKoList.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoSmallVector.h"
#include "pf/util/KoStdOutput.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>

namespace
{

std::size_t vowels(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return std::string_view("aeiou").find(c) < 5; }));
}

} // namespace

int main()
{
    // In and out: CKoString gives a view by itself and takes one on demand.
    const std::string name = "gear pump";
    CKoString text{std::string_view(name)};
    text.append(std::string_view(" 7"));
    std::cout << text << ": " << vowels(text) << " vowels, " << (text == std::string_view("gear pump 7"))
              << '\n';

    // A text is a range of code points.
    const CKoString size("Größe");
    std::cout << std::count_if(size.begin(), size.end(), [](unsigned int c) { return c > 127U; }) << " of "
              << std::distance(size.begin(), size.end()) << " letters are not ASCII\n";

    // As keys of the standard library's containers; std::less of views gives the order of the bytes.
    std::unordered_map<CKoString, int> litres{{"inlet", 40}, {"outlet", 2}};
    const std::map<CKoString, int, std::less<std::string_view>> sorted(litres.begin(), litres.end());
    std::cout << sorted.begin()->first << " comes first\n";

    // The containers are ranges, and take what algorithms give.
    TKoSmallVector<int> readings;
    for (const auto& [pump, amount] : sorted)
    {
        readings.push_back(amount);
    }
    std::sort(readings.begin(), readings.end());
    TKoList<int> copies;
    std::copy(readings.begin(), readings.end(), std::back_inserter(copies));
    TKoHashArray<CKoString, int> table;
    table["sum"] = std::accumulate(copies.begin(), copies.end(), 0);
    for (const auto& entry : table)
    {
        std::cout << entry << '\n';
    }
    return 0;
}
