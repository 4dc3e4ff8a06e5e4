#include "commands/profile_transfer.h"

#include "base/document.h"
#include "base/reply.h"
#include "base/value.h"
#include "commands/document.h"
#include "commands/profile.h"
#include "commands/set.h"
#include "commands/targets.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/former.h"
#include "store/profile_files.h"

namespace qvcd {

namespace {

int fail(std::FILE *out, std::string_view error)
{
    reply_line(out, error);
    return 1;
}

bool names_profile(const Args &argv)
{
    return argv.size() > 1 && is_profile_name(argv[1]) && argv[1] != kDefaultProfile;
}

// Null, or why the value is not taken over.
const char *setting_error(const Request &request, const std::string &api, const std::string &escaped)
{
    if (!find_api(api))
        return API_E_PARAM_NOT_FOUND;
    if ((request.mask & meta_get_perm(api) & kWriteBits) == 0)
        return API_E_INVALID_PERMISSION;
    const auto value = url_unescape(escaped);
    return value ? value_error(*value) : API_E_INVALID_CHARACTER;
}

// Takes out of the document what is not taken over, and says so.
void keep_what_may_be_written(const Request &request, Tree &document, std::FILE *out)
{
    for (const std::string &api : hdfutils_names(document.root(), "", hdfutils_check_endnode)) {
        const std::string escaped = document.get_or(api, "");
        const char *const error = setting_error(request, api, escaped);
        if (!error)
            continue;
        reply_value(out, api, error);
        document.remove(api);
    }
}

} // namespace

int profile_export(Request &request, Args &argv, std::FILE *out)
{
    if (!names_profile(argv))
        return fail(out, API_E_INVALID_CMD_ARGS);
    Tree profile = Tree::make();
    const std::string name = known_profile(argv[1]);
    if (profile_exists(name) != 0)
        return fail(out, "##Profile not found#");
    if (profile_read_hdf(name, profile) != 0)
        return fail(out, "##Error loading profile#");
    for (const std::string &api : hdfutils_names(profile.root(), "", hdfutils_check_endnode)) {
        if (!MetaApi(api).visible_to(request.mask))
            profile.remove(api);
    }
    if (argv.size() < 3 || Document::is_meant_by(argv[2])) {
        reply_text(out, hdf_text(profile.root()));
        return 0;
    }
    const FileResult written =
        hdf_write_file(qv_sysroot_path(argv[2]), profile.root(), FileKind::named_secret);
    return written.error ? fail(out, "##can not write " + argv[2] + "#") : 0;
}

int profile_import(Request &request, Args &argv, std::FILE *out)
{
    if (!names_profile(argv) || argv.size() < 3)
        return fail(out, API_E_INVALID_CMD_ARGS);
    const std::string name = known_profile(argv[1]);
    const std::string &file = argv[2];
    const DocumentImport turn(file);
    if (!turn.may_run())
        return fail(out, DocumentImport::kRefusal);
    Tree document = Tree::make();
    const HdfRead read = read_import(request, file, document);
    if (read.result == HdfResult::missing)
        return fail(out, missing_import(file, API_E_IMPORT_FAILED));
    if (read.result == HdfResult::error) {
        qv_log_print(kLogError, "Can not import profile %s: %s\n", name.c_str(), read.detail.c_str());
        return fail(out, import_error(file, API_E_IMPORT_FAILED, read.detail));
    }
    rename_former(document);
    keep_what_may_be_written(request, document, out);
    if (store_profile(name, settings_of(document), "", out) != 0)
        return 1;
    reply_value(out, "Profile." + name + ".name", name);
    return 0;
}

} // namespace qvcd
