#include "commands/document.h"

#include "base/document.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "platform/sysroot.h"
#include "store/meta.h"

#include <charconv>
#include <optional>

namespace qvcd {

namespace {

constexpr char kInvalidLength[] = "##Invalid document length#";
constexpr char kTooLong[] = "##Document too long#";

bool import_is_running = false; // changed under the command lock

std::optional<std::size_t> number(const std::string &text)
{
    std::size_t n = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, n);
    if (stop != end || error == std::errc::invalid_argument)
        return std::nullopt;
    return error == std::errc() ? n : static_cast<std::size_t>(-1);
}

// Null when the document may come.
const char *refusal(const Request &request, std::optional<std::size_t> length)
{
    if (request.caller.stranger || (request.mask & kWriteBits) == 0)
        return API_E_INVALID_PERMISSION;
    if (!length)
        return kInvalidLength;
    return *length > Document::kMaxBytes ? kTooLong : nullptr;
}

int command_document(Request &request, Args &argv, std::FILE *out)
{
    Document *const document = request.caller.document;
    const std::optional<std::size_t> length = argv.size() == 1 ? number(argv[0]) : std::nullopt;
    const char *const error = document ? refusal(request, length) : API_E_INVALID_CMD;
    if (!error) {
        document->expect(*length);
        reply_value(out, "Document", argv[0]);
        return 0;
    }
    if (document)
        document->refuse();
    reply_line(out, error);
    return 1;
}

} // namespace

HdfRead read_import(const Request &request, const std::string &name, Tree &fresh)
{
    if (!Document::is_meant_by(name))
        return hdf_read_foreign_file(qv_sysroot_path(name), fresh);
    Document *const document = request.caller.document;
    if (!document || !document->is_there())
        return {HdfResult::missing, "no document came with the command"};
    return hdf_read_foreign_text(document->take(), fresh);
}

std::string import_error(const std::string &name, const char *error, const std::string &detail)
{
    return Document::is_meant_by(name) && !detail.empty() ? std::string(error) + ": " + detail : error;
}

const char *missing_import(const std::string &name, const char *file_error)
{
    return Document::is_meant_by(name) ? kNoDocument : file_error;
}

DocumentImport::DocumentImport(const std::string &name)
    : counts_(Document::is_meant_by(name) && !import_is_running),
      may_run_(counts_ || !Document::is_meant_by(name))
{
    import_is_running = import_is_running || counts_;
}

DocumentImport::~DocumentImport()
{
    if (counts_)
        import_is_running = false;
}

const CommandRecord documentRecord = {
    .name = "document",
    .handler = command_document,
    .summary = "Announce a document that the next command takes",
    .synopsis = "document <bytes>",
    .return_values = "Document=<bytes>: it may come.",
    .errors =
        "##Invalid permission#: the caller may not write anything.\n"
        "##Invalid document length#, ##Document too long#: the length is no number, or more than 4 MiB.\n"
        "After each of them, and when no newline follows the document, the connection ends with result 1.",
    .description =
        "For programs: behind this line come so many bytes and a newline. The next command line takes them "
        "where it is told \"-\" in place of a file: import, preset.import, profile.import and user.import, "
        "or commit its assignments. "
        "Behind that line the document is gone, whether it was taken or not.",
    .open_to_strangers = true, // else what they send on would be run as commands
};

} // namespace qvcd
