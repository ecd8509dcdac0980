// report [FILE] [--configuration FILE] [--xml] [--encoding utf-8|iso-8859-15] [--base64]: reads what a
// recorder recorded, in this file or in the one of the configuration, and prints the same report. Whatever in
// the file is no whole record is told on standard error, and the rest is used.
//
// Exit status: 0 = all of the file was used, 1 = part of it, 2 = the file could not be read,
// or nothing printed.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <CLI/CLI.hpp>

#include "CommandLine.h"
#include "Ledger.h"
#include "RecordFile.h"
#include "ReportWriter.h"
#include "Settings.h"

namespace
{

constexpr int PARTLY = 1;
constexpr int FAILED = 2;

int fail(const char* what)
{
    std::fprintf(stderr, "report: %s: %s\n", what, std::strerror(errno));
    return FAILED;
}

int print(const CKoPath& path, const ReportWriter::Form& form)
{
    RecordReader file(path);
    if (!file.isOpen())
    {
        return fail(path.getString().c_str());
    }
    Ledger ledger;
    ledger.load(file);
    if (!ReportWriter::print(ledger, form))
    {
        return fail("standard output");
    }
    return file.isAllOfUse() ? 0 : PARTLY;
}

int run()
{
    const std::vector<const char*> arguments = CommandLine::arguments();
    std::string path;
    std::string configuration;
    ReportWriter::Form form;
    CLI::App app("Reads what a recorder recorded, and prints the same report.");
    CLI::Option* const fileOption = app.add_option("file", path, "the recorder's file");
    app.add_option("--configuration", configuration, "where the recorder's file is named, if not here");
    app.add_flag("--xml", form.asXml, "print the report as XML");
    app.add_option("--encoding", form.encoding, "the characters of the report")
        ->transform(CLI::IsMember({ReportWriter::UTF_8, ReportWriter::ISO_8859_15}, CLI::ignore_case))
        ->capture_default_str();
    app.add_flag("--base64", form.asBase64, "print the report as Base64, on one line");
    CLI11_PARSE(app, static_cast<int>(arguments.size()), arguments.data());

    if (fileOption->count() > 0)
    {
        return print(path.c_str(), form);
    }
    const std::optional<Settings> settings = Settings::read(configuration);
    return settings ? print(settings->records, form) : FAILED;
}

} // namespace

int main()
{
    const int status = run();
    CommandLine::tellBytesInUse();
    return status;
}
