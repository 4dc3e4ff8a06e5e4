#include "base/document.h"

#include <utility>

namespace qvcd {

void Document::forget(State state)
{
    state_ = state;
    text_ = std::string(); // its memory too
}

void Document::expect(std::size_t bytes)
{
    forget(State::coming); // memory grows with what comes, not with what is announced
    size_ = bytes;
}

void Document::refuse()
{
    forget(State::refused);
}

void Document::add(std::string_view bytes)
{
    text_ += bytes;
    if (missing() > 0)
        return;
    if (text_.back() != '\n')
        return refuse();
    text_.pop_back();
    state_ = State::there;
}

std::string Document::take()
{
    std::string text = std::exchange(text_, std::string());
    forget(State::none);
    return text;
}

void Document::drop_old()
{
    if (is_there())
        forget(State::none);
}

} // namespace qvcd
