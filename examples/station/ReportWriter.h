#pragma once

#include <string>

#include "Ledger.h"

/// How a ledger is shown to people: a row for each source, sums, and the latest samples.
namespace ReportWriter
{

/// Encodings of the report, by the names that XML has for them.
constexpr const char* UTF_8 = "UTF-8";
constexpr const char* ISO_8859_15 = "ISO-8859-15"; ///< characters that it does not have become question marks

struct Form
{
    bool asXml = false; ///< otherwise as text in columns
    std::string encoding = UTF_8;
    bool asBase64 = false; ///< the bytes of all that, on one line
};

/// Writes the report to standard output. \return whether that worked; if not, the reason is in `errno`.
bool print(const Ledger& ledger, const Form& form);

} // namespace ReportWriter
