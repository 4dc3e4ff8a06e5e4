#include "commands/import.h"

#include "base/value.h"
#include "commands/defaults.h"
#include "commands/document.h"
#include "commands/set.h"
#include "commands/snapshot.h"
#include "commands/targets.h"
#include "funcs/check_map.h"
#include "platform/log.h"
#include "store/former.h"
#include "store/hdf_file.h"

#include <malloc.h>

namespace qvcd {

namespace {

constexpr char kDefaultFile[] = "/tmp/user_settings.hdf";

// The row's number is the mode. Other numbers are as mode 0, which raises every flag.
constexpr SetMode kModes[] = {SetMode::set, SetMode::sets, SetMode::seta, SetMode::none};

SetMode import_mode(int number)
{
    return number >= 0 && number < static_cast<int>(std::size(kModes)) ? kModes[number] : kModes[0];
}

// Null, or the error.
const char *read_document(const Request &request, const std::string &file, Tree &document,
                          std::string &detail)
{
    const HdfRead read = read_import(request, file, document);
    if (read.result == HdfResult::missing) {
        qv_log_print(kLogWarning, "Can not importing file %s\n", file.c_str());
        return missing_import(file, API_E_IMPORT_FAILED);
    }
    if (read.result == HdfResult::error) {
        qv_log_print(kLogError, "Error reading file %s\n", file.c_str());
        qv_log_print(kLogError, "%s: %s\n", file.c_str(), read.detail.c_str());
        detail = read.detail;
        return API_E_IMPORT_FAILED;
    }
    if (!document.root().first_child()) {
        qv_log_print(kLogError, "Error importing file %s\n", file.c_str());
        detail = "there is nothing in it";
        return API_E_IMPORT_FAILED;
    }
    return nullptr;
}

void log_setting(const char *what, const std::string &api, const std::string &value)
{
    if (qv_log_wants(kLogTrace))
        qv_log_print(kLogTrace, "%s %s=%s\n", what, api.c_str(), value_for_log(api, value).c_str());
}

// Clients know the reply to a value that is not valid: "default" does not find an API named "name=value". The
// API keeps its value.
void refuse_value(Request &request, const std::string &api, const std::string &escaped, std::FILE *out)
{
    Args argument = {cut(api + "=" + shown_value(api, escaped), kMaxValueBytes)};
    command_default(request, argument, out);
    log_setting("import default", api, escaped);
}

void import_setting(Request &request, const std::string &api, const std::string &escaped, SetMode mode,
                    std::FILE *out)
{
    if ((request.mask & meta_get_perm(api) & kWriteBits) == 0)
        return;
    const auto value = url_unescape(escaped);
    if (const char *error = value ? value_error(*value) : API_E_INVALID_CHARACTER) {
        refuse(api, error, out);
        return;
    }
    if (cfuncmap_check(api, *value))
        return refuse_value(request, api, escaped, out);
    if (meta_get(api, "type") == "timecode")
        return log_setting("ignore", api, escaped);
    set_stored(request, {api, *value}, out, mode);
    log_setting("import", api, escaped);
}

// By name: what is set may be written through to the system, with the command lock let go.
void import_settings(Request &request, const Tree &document, SetMode mode, std::FILE *out)
{
    for (const std::string &api : hdfutils_names(document.root(), "", hdfutils_check_endnode)) {
        if (const auto value = document.get(api))
            import_setting(request, api, std::string(*value), mode, out);
    }
}

int import_file(Request &request, const std::string &file, SetMode mode, std::FILE *out)
{
    const DocumentImport turn(file);
    Tree document;
    std::string detail;
    if (const char *error =
            turn.may_run() ? read_document(request, file, document, detail) : DocumentImport::kRefusal) {
        reply_line(out, import_error(file, error, detail));
        return 1;
    }
    qv_log_print(kLogNotice, "Import file %s\n", file.c_str());
    note_event(request);
    rename_former(document);
    import_settings(request, document, mode, out);
    return 0;
}

} // namespace

int command_import(Request &request, Args &argv, std::FILE *out)
{
    const std::string file = argv.empty() ? kDefaultFile : argv[0];
    const int mode = argv.size() > 1 ? c_int(argv[1]) : 0;
    const int result = import_file(request, file, import_mode(mode), out);
    malloc_trim(0); // a document of 4 MiB takes up to 300, which nobody needs again
    return result;
}

const CommandRecord importRecord = {
    .name = "import",
    .handler = command_import,
    .summary = "Import a user settings file",
    .synopsis = "import [<file>] [<mode>]",
    .errors =
        "##Import failed#: the file is missing, empty or no valid document. Nothing is set, and the result "
        "is 1.\n"
        "##No document was sent#, ##Another import is running#: of \"-\" alone.\n"
        "<name>=<value>=##Parameter not found#: the value, seven asterisks for a password, is not valid. "
        "The API keeps the one it has.",
    .description =
        "Sets every API of a document that the export command wrote; without a file name "
        "/tmp/user_settings.hdf is read, for \"-\" what came over the connection (help.cmd document). "
        "Files are the appliance's. Nothing is saved and nothing applied. Mode 0 sets as the set "
        "command does, 1 as sets, 2 as seta; 3 raises no flags. Unknown APIs, time codes, and what the "
        "caller may not write are passed over. A file may have 4 MiB and 64 levels, and can not include "
        "others.",
    .recorded = ChangeNotes::Level::all,
};

} // namespace qvcd
