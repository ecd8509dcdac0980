#include "ReportWriter.h"

#include <cmath>
#include <cstdio>

#include "pf/base/KoCharsetConversion.h"
#include "pf/base/KoStringUtilities.h"
#include "pf/stream/CKoOTextStream.h"
#include "pf/util/KoBase64.h"

namespace
{

constexpr double LEAST_DRIFT_MS = 5.0; ///< less is not told from lateness on a busy machine
constexpr unsigned int NAME_WIDTH = 12;
constexpr char NO_SUCH_CHARACTER = '?';

double unitsOf(unsigned long long thousandths)
{
    return static_cast<double>(thousandths) / 1000.0;
}

/// Names are shown in upper case.
CKoString shown(CKoString name)
{
    KoStringUtilities::toUpper(name);
    return name;
}

/// With blanks behind it, by its characters: printf counts bytes.
CKoString padded(CKoString name)
{
    while (name.length() < NAME_WIDTH)
    {
        name.append(" ");
    }
    return name;
}

CKoString decimal(double number)
{
    CKoString text;
    text.format("%.2f", number);
    return text;
}

/// A timer that is late while the programs start, and in time later, has not left its grid.
double driftOf(const Account& account)
{
    const double driftMs = account.driftMs();
    const bool isEarly = account.lastLateness < 0;
    return std::abs(driftMs) < LEAST_DRIFT_MS || (driftMs < 0.0 && !isEarly) ? 0.0 : driftMs;
}

CKoString driftText(const Account& account)
{
    const double driftMs = driftOf(account);
    return driftMs == 0.0 ? CKoString("none") : decimal(driftMs) + " ms";
}

CKoString countText(unsigned long long count)
{
    CKoString text("none");
    if (count > 0)
    {
        text.format("%llu", count);
    }
    return text;
}

void writeRow(CKoOTextStream& out, const Account& account)
{
    out.streamWrite("%s  %5u ms  %7llu  %6s  %8s  %11.2f ms  %10.2f %s\n",
                    padded(shown(account.source.name)).c_str(), account.source.periodMs, account.samples(),
                    countText(account.lost).c_str(), driftText(account).c_str(), account.worstMs(),
                    unitsOf(account.latest), account.source.unit.c_str());
}

template <class Value>
void writeAttribute(CKoOTextStream& out, const char* name, const Value& value)
{
    out << ' ' << name << "=\"" << koXmlEscape << value << koNoXmlEscape << '"';
}

void writeElement(CKoOTextStream& out, const Account& account)
{
    out << "  <source";
    writeAttribute(out, "name", shown(account.source.name));
    writeAttribute(out, "unit", account.source.unit);
    writeAttribute(out, "period_ms", account.source.periodMs);
    writeAttribute(out, "samples", account.samples());
    writeAttribute(out, "lost", account.lost);
    writeAttribute(out, "drift_ms", decimal(driftOf(account)));
    writeAttribute(out, "worst_lateness_ms", decimal(account.worstMs()));
    out << "/>\n";
}

/// Calls `write` with each of the latest samples, the oldest first.
template <class Write>
void forEachLatest(const Ledger& ledger, Write write)
{
    ledger.latestSamples().forEach(
        [&](const CKoByteStream& message)
        {
            Message::Sample sample;
            Message::kindOf(message);
            Message::readBody(message, sample);
            write(sample);
        });
}

void writePlain(CKoOTextStream& out, const Ledger& ledger)
{
    out << "source          period  samples    lost     drift  worst lateness            latest\n"
           "------------  --------  -------  ------  --------  --------------  ----------------\n";
    for (const Account& account : ledger.accounts())
    {
        writeRow(out, account);
    }
    out << '\n'
        << ledger.samples() << " samples, lost: " << countText(ledger.lost())
        << ", restarts of the recorder: " << countText(ledger.restarts()) << "\n\nthe latest samples\n";
    forEachLatest(ledger,
                  [&](const Message::Sample& sample)
                  {
                      out << sample.taken.toString() << koWidth(12) << decimal(unitsOf(sample.value)).c_str()
                          << "  " << shown(sample.name) << '\n';
                  });
}

void writeXml(CKoOTextStream& out, const Ledger& ledger, const std::string& encoding)
{
    out << "<?xml version=\"1.0\"";
    writeAttribute(out, "encoding", encoding.c_str());
    out << "?>\n<report";
    writeAttribute(out, "samples", ledger.samples());
    writeAttribute(out, "lost", ledger.lost());
    writeAttribute(out, "restarts", ledger.restarts());
    out << ">\n";
    for (const Account& account : ledger.accounts())
    {
        writeElement(out, account);
    }
    forEachLatest(ledger,
                  [&](const Message::Sample& sample)
                  {
                      out << "  <sample";
                      writeAttribute(out, "source", shown(sample.name));
                      writeAttribute(out, "taken", sample.taken.toString());
                      writeAttribute(out, "value", decimal(unitsOf(sample.value)));
                      out << "/>\n";
                  });
    out << "</report>\n";
}

/// One byte for each character.
std::string inIso885915(const CKoString& text)
{
    std::string bytes(text.length() + 1, '\0');
    KoConvertTo8859_15(text, bytes.data(), static_cast<unsigned int>(bytes.size()), NO_SUCH_CHARACTER);
    bytes.pop_back();
    return bytes;
}

std::string inBase64(const std::string& bytes)
{
    std::string text(4 * ((bytes.size() + 2) / 3), '\0');
    KoBase64::encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                     static_cast<unsigned int>(bytes.size()), text.data(),
                     static_cast<unsigned int>(text.size()));
    return text + '\n';
}

} // namespace

bool ReportWriter::print(const Ledger& ledger, const Form& form)
{
    CKoOTextStream out;
    form.asXml ? writeXml(out, ledger, form.encoding) : writePlain(out, ledger);
    std::string report = form.encoding == ISO_8859_15 ? inIso885915(out.c_str()) : out.c_str();
    report = form.asBase64 ? inBase64(report) : report;
    return std::fwrite(report.data(), 1, report.size(), stdout) == report.size() && std::fflush(stdout) == 0;
}
