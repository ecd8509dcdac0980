#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "pf/util/CKoPath.h"

/// Paths by the plainest rules, and the comparison of CKoPath with them.
namespace KoTest
{

inline std::string canonicalText(const std::string& text)
{
    std::string canonical;
    for (const char c : text)
    {
        if (c != '/' || canonical.empty() || canonical.back() != '/')
            canonical += c;
    }
    if (canonical.size() > 1 && canonical.back() == '/')
        canonical.pop_back();
    return canonical;
}

/// Where the last component's separator stands, 0 for the first character.
inline std::size_t lastSeparator(const std::string& text)
{
    const std::size_t lastOfLeaf = text.find_last_not_of('/');
    const std::size_t separator = lastOfLeaf == std::string::npos ? 0 : text.rfind('/', lastOfLeaf);
    return separator == std::string::npos ? 0 : separator;
}

inline std::string leafOf(const std::string& text)
{
    const std::size_t leaf = text.find_first_not_of('/', lastSeparator(text));
    return leaf == std::string::npos ? std::string() : text.substr(leaf);
}

inline std::string branchOf(const std::string& text)
{
    const std::size_t separator = lastSeparator(text);
    if (separator != 0)
        return text.substr(0, separator);
    return !text.empty() && text.front() == '/' ? "/" : "";
}

inline std::string joinedText(const std::string& left, const std::string& right)
{
    const std::string joined = left + "/" + right;
    return joined.size() < 1024 ? joined : std::string();
}

inline bool isRootText(const std::string& text)
{
    const std::string canonical = canonicalText(text);
    const CKoString characters(canonical.c_str());
    const unsigned int letter = characters[0] | 0x20U;
    const bool isDrive = letter >= 'a' && letter <= 'z' && characters[1] == ':' && characters.length() <= 3;
    return canonical == "/" || isDrive;
}

/// What `convertSeparators` makes of a text in a buffer that is exactly large enough.
inline std::string convertedText(const std::string& text)
{
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    CKoPath::convertSeparators(buffer.data());
    return std::string(buffer.data(), buffer.size() - 1);
}

/// Compares everything that CKoPath makes of two texts (well-formed, without zero bytes) with the rules.
/// \return what is different, empty when nothing is.
inline std::string differenceOfPaths(const std::string& left, const std::string& right)
{
    const CKoPath path(left.c_str());
    const bool isValid = path.getString().length() >= 1 && path.getString().length() < 1024;
    std::string converted = left;
    std::replace(converted.begin(), converted.end(), '\\', '/');
    const CKoPath inCanonicalForm(canonicalText(left).c_str());

    const struct
    {
        const char* what;
        std::string is;
        std::string shouldBe;
    } comparisons[] = {
        {"leaf", path.getLeaf().c_str(), isValid ? leafOf(left) : ""},
        {"branch", path.getBranch().c_str(), isValid ? branchOf(left) : ""},
        {"canonical form", CKoPath::canonify(path.getString()).c_str(), canonicalText(left)},
        {"joined path", (path / CKoPath(right.c_str())).getString().c_str(), joinedText(left, right)},
        {"joined text", (path / right.c_str()).getString().c_str(), joinedText(left, right)},
        {"separators", convertedText(left), converted},
    };
    for (const auto& each : comparisons)
    {
        if (each.is != each.shouldBe)
            return std::string(each.what) + " of " + left + " and " + right + ": " + each.is;
    }
    if (path.isValid() != isValid || CKoPath(path).isRoot() != isRootText(left) || path != inCanonicalForm)
        return "queries of " + left;
    if ((path == CKoPath(right.c_str())) != (canonicalText(left) == canonicalText(right)))
        return "comparison of " + left + " and " + right;
    return path.getString().c_str() == canonicalText(left) ? "" : "text of " + left + " after a comparison";
}

} // namespace KoTest
