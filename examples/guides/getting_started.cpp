// Text, a map, a timer and a file in one small process, which breaks a precondition and goes on.
#include "pf/base/CKoString.h"
#include "pf/containers/TKoMap.h"
#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/util/CKoFileHandle.h"

#include <cstdio>
#include <fcntl.h>

using Litres = TKoMap<CKoString, unsigned int>;

/// Reads every pump once in 10 ms.
class Meter final : public CLogicalTimer
{
public:
    Meter(CLogicalTimerManager& manager, Litres& litres)
        : CLogicalTimer(manager)
        , m_litres(litres)
    {
    }

    int readings() const { return m_readings; }

private:
    void onTimeout() override
    {
        ++m_readings;
        for (auto& [pump, litres] : m_litres)
        {
            litres += pump.length(); // a real meter would ask the pump
        }
    }

    Litres& m_litres;
    int m_readings = 0;
};

bool save(const Litres& litres, const char* path)
{
    CKoString text;
    for (const auto& [pump, amount] : litres)
    {
        CKoString line;
        line.format("%s: %u l\n", pump.c_str(), amount);
        text.append(line);
    }
    CKoFileHandle file(path, O_WRONLY | O_CREAT | O_TRUNC);
    return file.writeN(text.c_str(), text.byteLength(), -1);
}

int main()
{
    Litres litres;
    litres.insert("inlet", 0);
    litres.insert("Rücklauf", 100);

    CLogicalTimerManager manager(1000, false); // waits at most 1000 ms; used by this thread only
    Meter meter(manager, litres);
    meter.start(10, false); // every 10 ms, not once
    while (meter.readings() < 3)
    {
        manager.performWork();
    }
    meter.stop();

    const bool isSaved = save(litres, "litres.txt");
    std::printf("%d pumps, saved: %s\n", static_cast<int>(litres.size()), isSaved ? "yes" : "no");

    const auto* const nobody = litres.get(7); // reported; the result is null
    std::printf("pump 7: %s\n", nobody != nullptr ? "there" : "not there");
    return isSaved && nobody == nullptr ? 0 : 1;
}
