#pragma once

#include <string_view>

namespace qvcd {

/// True for the type of a password: one of its alternatives is called so, as in "blank,password 1 32". What
/// is behind a type's name, as the choices of a set, says nothing.
bool is_password_type(std::string_view type);

} // namespace qvcd
