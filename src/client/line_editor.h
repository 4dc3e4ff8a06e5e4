#pragma once

#include <functional>
#include <histedit.h>
#include <memory>
#include <string>
#include <vector>

namespace qvcd::client {

/// A line of a terminal that is edited as it is typed, with a history and completion by TAB. What is typed is
/// UTF-8 unless the locale says otherwise.
class LineEditor {
  public:
    struct Completion {
        std::size_t start;                   ///< of what the candidates stand for, in the line
        std::vector<std::string> candidates; ///< as they are typed
    };
    /// Given the line up to the cursor.
    using Completer = std::function<Completion(const std::string &)>;

    explicit LineEditor(Completer completer);
    LineEditor(const LineEditor &) = delete;
    LineEditor &operator=(const LineEditor &) = delete;

    /// False at the end of the input; an interrupted line is empty.
    bool read_line(const std::string &prompt, std::string &line);

    void remember(const std::string &line);

  private:
    static const char *prompt(EditLine *editor);
    static unsigned char complete(EditLine *editor, int);
    unsigned char complete();

    std::unique_ptr<EditLine, decltype(&el_end)> editor_;
    std::unique_ptr<History, decltype(&history_end)> history_;
    Completer completer_;
    std::string prompt_;
};

} // namespace qvcd::client
