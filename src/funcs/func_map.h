#pragma once

#include "base/text.h"
#include "platform/log.h"
#include "store/meta.h"
#include "store/tree.h"

#include <span>
#include <string>
#include <string_view>

namespace qvcd {

/// Names of a table's rows, each with its row number. Row 0 of every table is the fallback, so an unknown
/// name gives 0.
class NameIndex {
  public:
    void create() { index_ = Tree::make(); }
    void destroy() { index_.destroy(); }
    void add(std::string_view name, int row) { index_.set(name, std::to_string(row)); }
    std::size_t row(std::string_view name) const
    {
        return name.empty() ? 0 : static_cast<std::size_t>(index_.get_int(name, 0));
    }

  private:
    Tree index_;
};

/// Fills the index of a function map from its table and logs "<map> map created with <n> functions".
template <class Row>
void create_func_index(NameIndex &index, std::span<const Row> rows, const char *map)
{
    index.create();
    int number = 0;
    for (const Row &row : rows)
        index.add(row.name, number++);
    qv_log_print(kLogInfo, "%s map created with %d functions\n", map, number);
}

/// What a log line shows of a value: nothing of a password.
inline std::string log_value(std::string_view api, std::string_view value)
{
    return std::string(meta_is_password(api) ? kHiddenPassword : value);
}

} // namespace qvcd
