#include "client/line_editor.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <stdexcept>

#include "client/completion.h"
#include "client/history_file.h"
#include "client/terminal_text.h"

namespace qvcd::client {

namespace {

// Without a locale the editor drops what is not ASCII. Where none is set, as over many a serial line, the
// terminal is taken to speak UTF-8.
void choose_character_set()
{
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

// Bytes that are no character here count one each, as the editor has them.
int characters_in(const std::string &text)
{
    int count = 0;
    std::mbstate_t state{};
    for (std::size_t at = 0; at < text.size(); ++count) {
        const std::size_t size = std::mbrlen(text.data() + at, text.size() - at, &state);
        const bool good = size > 0 && size <= text.size() - at;
        at += good ? size : 1;
        state = good ? state : std::mbstate_t{};
    }
    return count;
}

std::string common_prefix(const std::vector<std::string> &candidates)
{
    std::string prefix = candidates.at(0);
    for (const std::string &candidate : candidates) {
        const auto [mine, theirs] = std::ranges::mismatch(prefix, candidate);
        prefix.erase(mine, prefix.end());
    }
    while (!prefix.empty() && candidates[0].size() > prefix.size() &&
           (static_cast<unsigned char>(candidates[0][prefix.size()]) & 0xc0U) == 0x80U)
        prefix.pop_back(); // not in the midst of a character
    if (std::ranges::count(prefix.substr(prefix.find_last_not_of('\\') + 1), '\\') % 2 != 0)
        prefix.pop_back(); // nor of an escaped one
    return prefix;
}

void list_candidates(const std::vector<std::string> &candidates)
{
    std::fputc('\n', stdout);
    for (const std::string &candidate : candidates)
        std::fprintf(stdout, "%s  ", for_output(candidate).c_str());
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

LineEditor::LineEditor(Completer completer)
    : editor_(nullptr, el_end), history_(history_init(), history_end), completer_(std::move(completer))
{
    choose_character_set();
    editor_.reset(el_init("qvc", stdin, stdout, stderr));
    if (!editor_ || !history_)
        throw std::runtime_error("cannot set up the terminal");
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, static_cast<int>(kHistoryLines));
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(editor_.get(), EL_CLIENTDATA, this);
    el_set(editor_.get(), EL_PROMPT, &LineEditor::prompt);
    el_set(editor_.get(), EL_EDITOR, "emacs");
    el_set(editor_.get(), EL_SIGNAL, 1);
    el_set(editor_.get(), EL_HIST, history, history_.get());
    unsigned char (*on_tab)(EditLine *, int) = &LineEditor::complete;
    el_set(editor_.get(), EL_ADDFN, "complete-name", "Complete a name", on_tab);
    el_set(editor_.get(), EL_BIND, "^I", "complete-name", nullptr);
    el_set(editor_.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

bool LineEditor::read_line(const std::string &prompt, std::string &line)
{
    line.clear();
    prompt_ = prompt;
    int length = 0;
    errno = 0;
    const char *text = el_gets(editor_.get(), &length);
    if (text && length > 0) {
        line.assign(text, static_cast<std::size_t>(length));
        while (line.ends_with('\n') || line.ends_with('\r'))
            line.pop_back();
        return true;
    }
    std::fputc('\n', stdout);
    return errno == EINTR;
}

void LineEditor::remember(const std::string &line)
{
    HistEvent event{};
    history(history_.get(), &event, H_ENTER, line.c_str());
}

const char *LineEditor::prompt(EditLine *editor)
{
    const LineEditor *self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return self->prompt_.c_str();
}

unsigned char LineEditor::complete(EditLine *editor, int)
{
    LineEditor *self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return self->complete();
}

// Inserts what all candidates share, and lists them when that adds nothing.
unsigned char LineEditor::complete()
{
    const LineInfo *info = el_line(editor_.get());
    const std::string typed(info->buffer, info->cursor);
    const Completion completion = completer_(typed);
    const std::vector<std::string> &candidates = completion.candidates;
    if (candidates.empty())
        return CC_ERROR;
    const std::string word = typed.substr(completion.start);
    std::string whole = common_prefix(candidates);
    if (candidates.size() == 1 && !goes_on(candidates[0]))
        whole += ' ';
    if (whole == word || whole.empty()) {
        list_candidates(candidates);
        return CC_REDISPLAY;
    }
    el_deletestr(editor_.get(), characters_in(word));
    return el_insertstr(editor_.get(), whole.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

} // namespace qvcd::client
