#pragma once

#include <string>
#include <vector>

namespace qvcd::web {

/// Makes a self-signed certificate for these names and addresses, and its key (EC P-256), as PEM files: the
/// key with mode 0600. Throws std::runtime_error.
void make_certificate(const std::string &certificate_file, const std::string &key_file,
                      const std::vector<std::string> &names, const std::vector<std::string> &addresses);

/// False where one of the files is missing or broken, they do not belong together, or the certificate ends
/// within a month.
bool is_usable_certificate(const std::string &certificate_file, const std::string &key_file);

/// The names of a certificate, as far as they are no patterns. None when it cannot be read.
std::vector<std::string> names_of_certificate(const std::string &certificate_file);

} // namespace qvcd::web
