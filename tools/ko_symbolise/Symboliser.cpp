#include "tools/ko_symbolise/Symboliser.h"

#include <cstdlib>
#include <optional>

#include <cxxabi.h>
#include <dwarf.h>
#include <elfutils/libdw.h>

namespace KoSymbolise
{

namespace
{

/// Beside the object, below it, where a system installs debug files; as the library of the debug formats
/// writes it.
constexpr const char* DEBUG_PATH = ":.debug:/usr/lib/debug";

std::string textOf(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

/// A readable name; names that are not C++'s stay as they are, also those that would read as a type of it.
std::string demangled(const char* name)
{
    const std::string symbol = textOf(name);
    int status = 0;
    char* const readable =
        symbol.compare(0, 2, "_Z") == 0 ? abi::__cxa_demangle(name, nullptr, nullptr, &status) : nullptr;
    const std::string result = readable == nullptr ? symbol : readable;
    std::free(readable);
    return result;
}

/// An entry and those around it, up to the compilation unit.
class Scopes
{
public:
    explicit Scopes(Dwarf_Die& entry)
        : m_entries(nullptr)
        , m_count(dwarf_getscopes_die(&entry, &m_entries))
    {
    }
    ~Scopes() { std::free(m_entries); }
    Scopes(const Scopes&) = delete;
    Scopes& operator=(const Scopes&) = delete;

    Dwarf_Die* begin() const { return m_entries; }
    Dwarf_Die* end() const { return m_count > 0 ? m_entries + m_count : m_entries; }

private:
    Dwarf_Die* m_entries;
    int m_count;
};

/// The entry that an entry completes or copies, in the end.
Dwarf_Die original(Dwarf_Die entry)
{
    for (const unsigned int link : {DW_AT_abstract_origin, DW_AT_specification})
    {
        Dwarf_Attribute attribute;
        Dwarf_Die target;
        if (dwarf_attr(&entry, link, &attribute) != nullptr &&
            dwarf_formref_die(&attribute, &target) != nullptr)
        {
            entry = target;
        }
    }
    return entry;
}

/// Whether entries of this kind are part of a function's name.
bool isNamedScope(int tag)
{
    return tag == DW_TAG_namespace || tag == DW_TAG_class_type || tag == DW_TAG_structure_type;
}

/// The name with those of the classes and namespaces around it, for a function that no other file can name.
std::string qualifiedName(Dwarf_Die& function)
{
    std::string name = textOf(dwarf_diename(&function));
    Dwarf_Die inner = original(function);
    for (Dwarf_Die& scope : Scopes(inner))
    {
        const int tag = dwarf_tag(&scope);
        if (isNamedScope(tag))
        {
            const std::string unnamed = tag == DW_TAG_namespace ? "(anonymous namespace)" : "(unnamed class)";
            const char* const scopeName = dwarf_diename(&scope);
            name.insert(0, (scopeName == nullptr ? unnamed : scopeName) + "::");
        }
    }
    return name;
}

/// The name of a function or of an inlined copy of one.
std::string functionName(Dwarf_Die& function)
{
    for (const unsigned int name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name})
    {
        Dwarf_Attribute attribute;
        if (dwarf_attr_integrate(&function, name, &attribute) != nullptr)
        {
            return demangled(dwarf_formstring(&attribute));
        }
    }
    return qualifiedName(function);
}

std::optional<Dwarf_Word> number(Dwarf_Die& die, unsigned int name)
{
    Dwarf_Attribute attribute;
    Dwarf_Word value = 0;
    const bool isThere =
        dwarf_attr(&die, name, &attribute) != nullptr && dwarf_formudata(&attribute, &value) == 0;
    return isThere ? std::optional<Dwarf_Word>(value) : std::nullopt;
}

/// Where an inlined copy was called from.
Frame callOf(Dwarf_Die& unit, Dwarf_Die& inlined)
{
    Frame caller;
    Dwarf_Files* files = nullptr;
    const std::optional<Dwarf_Word> file = number(inlined, DW_AT_call_file);
    if (file && dwarf_getsrcfiles(&unit, &files, nullptr) == 0)
    {
        caller.file = textOf(dwarf_filesrc(files, *file, nullptr, nullptr));
    }
    caller.line = static_cast<int>(number(inlined, DW_AT_call_line).value_or(0));
    return caller;
}

/// The compilation unit of an address; null without debug information.
Dwarf_Die* unitOf(Dwfl_Module* module, Dwarf_Addr address, Dwarf_Addr& bias)
{
    Dwarf_Die* unit = dwfl_module_addrdie(module, address, &bias);
    if (unit != nullptr)
    {
        return unit;
    }
    // Some compilers leave the index of addresses out.
    do
    {
        unit = dwfl_module_nextcu(module, unit, &bias);
    } while (unit != nullptr && dwarf_haspc(unit, address - bias) <= 0);
    return unit;
}

Frame lineOf(Dwarf_Die& unit, Dwarf_Addr address)
{
    Frame frame;
    Dwarf_Line* const line = dwarf_getsrc_die(&unit, address);
    if (line != nullptr && dwarf_lineno(line, &frame.line) == 0)
    {
        frame.file = textOf(dwarf_linesrc(line, nullptr, nullptr));
    }
    return frame;
}

/// Adds the functions around an address, the outermost one first, inlined ones after it.
/// \return whether the entry holds any.
bool addFunctions(Dwarf_Die& parent, Dwarf_Addr address, std::vector<Dwarf_Die>& functions)
{
    Dwarf_Die entry;
    for (int end = dwarf_child(&parent, &entry); end == 0; end = dwarf_siblingof(&entry, &entry))
    {
        const int tag = dwarf_tag(&entry);
        const bool isFunction = tag == DW_TAG_subprogram || tag == DW_TAG_inlined_subroutine;
        if (!isFunction && tag != DW_TAG_lexical_block && !isNamedScope(tag))
        {
            continue;
        }
        const bool isAround = dwarf_haspc(&entry, address) > 0;
        if (isAround && isFunction)
        {
            functions.push_back(entry);
        }
        // Namespaces have no addresses, and the functions of a local class lie apart from the one it is in.
        if (addFunctions(entry, address, functions) || isAround)
        {
            return true;
        }
    }
    return false;
}

/// The functions around an address as the debug information tells; empty without any.
std::vector<Frame> framesFromDebugInformation(Dwfl_Module* module, Dwarf_Addr address)
{
    std::vector<Frame> frames;
    Dwarf_Addr bias = 0;
    Dwarf_Die* const unit = unitOf(module, address, bias);
    if (unit == nullptr)
    {
        return frames;
    }
    std::vector<Dwarf_Die> functions;
    addFunctions(*unit, address - bias, functions);
    Frame frame = lineOf(*unit, address - bias);
    for (auto function = functions.rbegin(); function != functions.rend(); ++function)
    {
        frame.function = functionName(*function);
        frames.push_back(frame);
        frame = callOf(*unit, *function);
    }
    return frames;
}

} // namespace

Symboliser::Symboliser(const std::vector<MapEntry>& map, const ObjectFiles& files,
                       const std::vector<std::string>& debugDirectories)
    : m_map(map)
    , m_debugPath(DEBUG_PATH)
    , m_debugPathText(nullptr)
    , m_dwfl(nullptr)
{
    for (const std::string& directory : debugDirectories)
    {
        m_debugPath += ":" + directory;
    }
    m_debugPathText = m_debugPath.data();
    m_callbacks.find_elf = dwfl_build_id_find_elf;
    m_callbacks.find_debuginfo = dwfl_standard_find_debuginfo;
    m_callbacks.debuginfo_path = &m_debugPathText;
    m_dwfl = dwfl_begin(&m_callbacks);
    dwfl_report_begin(m_dwfl);
    for (const MapEntry& entry : m_map)
    {
        load(entry, files);
    }
    dwfl_report_end(m_dwfl, nullptr, nullptr);
}

Symboliser::~Symboliser()
{
    dwfl_end(m_dwfl);
}

void Symboliser::load(const MapEntry& entry, const ObjectFiles& files)
{
    const std::optional<std::string> file = files.find(entry.path);
    const bool isLoaded =
        file && dwfl_report_elf(m_dwfl, entry.path.c_str(), file->c_str(), -1, entry.begin, false) != nullptr;
    isLoaded ? m_found.push_back(*file) : m_missing.push_back(entry.path);
}

Place Symboliser::find(std::uint64_t returnAddress) const
{
    Place place;
    for (const MapEntry& entry : m_map)
    {
        if (returnAddress >= entry.begin && returnAddress < entry.end)
        {
            place.object = entry.path;
            place.offset = returnAddress - entry.begin;
        }
    }
    // The call is the instruction before the one that is returned to, which may belong to another line or,
    // after a call that never returns, to another function.
    const Dwarf_Addr call = returnAddress - 1;
    Dwfl_Module* const module = dwfl_addrmodule(m_dwfl, call);
    if (module == nullptr)
    {
        return place;
    }
    place.frames = framesFromDebugInformation(module, call);
    if (place.frames.empty())
    {
        place.frames.emplace_back();
    }
    if (place.frames.back().function.empty())
    {
        place.frames.back().function = demangled(dwfl_module_addrname(module, call));
    }
    return place;
}

} // namespace KoSymbolise
