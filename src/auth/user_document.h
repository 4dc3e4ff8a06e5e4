#pragma once

#include "store/tree.h"

#include <string>
#include <string_view>

namespace qvcd {

/// A value that one line of the user file gives back as it is.
bool is_user_file_value(std::string_view value);

/// Why a document that is to be imported is none of users and groups; empty when it is one. What the user
/// file has no place for would stay in it for ever, unseen, and what it cannot hold would keep every later
/// change from being written.
std::string user_document_error(const Tree &document);

} // namespace qvcd
