#pragma once

#include "commands/command.h"
#include "store/hdf_file.h"

#include <string>

namespace qvcd {

extern const CommandRecord documentRecord;

inline constexpr char kNoDocument[] = "##No document was sent#";

/// Reads what a command was told to import: for "-" the document that came with it (base/document.h), which
/// is gone then, else a file, a path of the appliance. As hdf_read_foreign_file(); without a document the
/// result is `missing`.
HdfRead read_import(const Request &request, const std::string &name, Tree &fresh);

/// The line that says why an import failed. The sender of a document cannot read the log: he gets the detail.
std::string import_error(const std::string &name, const char *error, const std::string &detail);

/// What is not there: kNoDocument for "-", else `file_error`.
const char *missing_import(const std::string &name, const char *file_error);

/// One import of a document at a time, over the waits of its command: they would mix, and each takes up to
/// a hundred times its size while it lasts. Not for files, which everybody may go on to import as ever.
class DocumentImport {
  public:
    explicit DocumentImport(const std::string &name);
    ~DocumentImport();
    DocumentImport(const DocumentImport &) = delete;
    DocumentImport &operator=(const DocumentImport &) = delete;

    bool may_run() const { return may_run_; }
    static constexpr char kRefusal[] = "##Another import is running#";

  private:
    bool counts_;
    bool may_run_;
};

} // namespace qvcd
