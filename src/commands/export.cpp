#include "commands/export.h"

#include "base/document.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/targets.h"
#include "funcs/read_map.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/hdf_file.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr char kStream[] = "stdout";

// The targets that are no files.
bool is_stream(const std::string &target)
{
    return target == kStream || Document::is_meant_by(target);
}

// Which kinds of APIs go out; the row's number is the mode. Other numbers are as mode 0.
struct ExportMode {
    bool read_only;
    bool passwords;
    bool dynamic;
};
constexpr ExportMode kModes[] = {
    {false, false, false},
    {false, false, true},
    {false, true, false},
    {true, true, true},
};

// Three levels only: what the maker alone may write is nothing that a user restores.
constexpr unsigned kUserWriteBits = 0x222;

ExportMode export_mode(int number)
{
    return number >= 0 && number < static_cast<int>(std::size(kModes)) ? kModes[number] : kModes[0];
}

class Export {
  public:
    Export(Request &request, ExportMode mode) : request_(request), mode_(mode) {}

    void names(const Args &names, std::FILE *out);
    bool write(const std::string &target, std::FILE *out) const;

  private:
    bool goes_out(const Api &api) const;
    void setting(const Api &api);

    Request &request_;
    ExportMode mode_;
    Tree document_ = Tree::make();
    bool secret_ = false; // the document holds a password
};

bool Export::goes_out(const Api &api) const
{
    return api.visible_to(request_.mask) && ((api.perm() & kUserWriteBits) != 0 || mode_.read_only) &&
           (!api.is_secret() || mode_.passwords) && (!api.is_dynamic() || mode_.dynamic);
}

// The tree holds no value of a dynamic API: a document with its placeholder would set that when it is
// imported.
std::string exported_value(Request &request, const std::string &name, bool dynamic)
{
    std::optional<std::string> live;
    if (dynamic)
        live = rfuncmap_read(request, name);
    return live ? std::move(*live) : hdfDB.get_or(name, "");
}

// Reading a live value may let go of the command lock.
void Export::setting(const Api &api)
{
    if (!goes_out(api))
        return;
    const std::string name = api.name();
    const bool secret = api.is_secret();
    const std::string value = url_escape(exported_value(request_, name, api.is_dynamic()));
    document_.set(name, value);
    secret_ |= secret;
    qv_log_print(kLogTrace, "exporting %s=%s\n", name.c_str(), secret ? kHiddenPassword : value.c_str());
}

void Export::names(const Args &names, std::FILE *out)
{
    for_each_setting(names, out, [this](const Api &api) {
        setting(api);
        return 0;
    });
}

bool Export::write(const std::string &target, std::FILE *out) const
{
    if (is_stream(target)) {
        reply_text(out, hdf_text(document_.root()));
        return true;
    }
    const FileKind kind = secret_ ? FileKind::named_secret : FileKind::named;
    return hdf_write_file(qv_sysroot_path(target), document_.root(), kind).error == 0;
}

} // namespace

int command_export(Request &request, Args &argv, std::FILE *out)
{
    const std::string target = argv.empty() ? kStream : argv[0];
    const int mode = argv.size() > 1 ? c_int(argv[1]) : 0;
    if (!is_stream(target) && (request.mask & kLevel1Bits) == 0) {
        reply_line(out, API_E_INVALID_PERMISSION);
        return 1;
    }
    qv_log_print(kLogInfo, "export_file: %s export_mode: %d\n", target.c_str(), mode);
    Export document(request, export_mode(mode));
    document.names(
        Args(argv.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(argv.size(), 2)), argv.end()),
        out);
    if (!document.write(target, out)) {
        reply_line(out, "##can not write " + target + "#");
        return 1;
    }
    qv_log_print(kLogNotice, "Export file %s\n", target.c_str());
    return 0;
}

const CommandRecord exportRecord = {
    .name = "export",
    .handler = command_export,
    .summary = "Export the user settings",
    .synopsis = "export [<file>, stdout or -] [<mode>] [<API or group> ...]",
    .errors = "<name>=##Parameter not found#: there is no such API or group. The others are exported.\n"
              "##Invalid permission#: only administrators may have files written.\n"
              "##can not write <file>#: the old file stays, and the log says why. The result is 1.",
    .description =
        "Writes the settings that the caller may read, all or the named ones, as an HDF document with "
        "URL-escaped values: to a file, or to the reply when there is no file or it is \"stdout\" or \"-\". "
        "Files are the "
        "appliance's. The "
        "import command reads such a file.\n"
        "Mode 0 writes what can be set again, without passwords and dynamic APIs. Mode 1 adds dynamic "
        "APIs, mode 2 adds passwords, in clear. Mode 3 adds both, and read-only APIs.",
};

} // namespace qvcd
