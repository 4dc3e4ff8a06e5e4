#include "web/message.h"

#include "web/json.h"

#include <algorithm>

namespace qvcd::web {

namespace {

struct TitleRow {
    int status;
    std::string_view title;
};
constexpr TitleRow kTitles[] = {
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {413, "Content Too Large"},
    {415, "Unsupported Media Type"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

} // namespace

std::string_view status_title(int status)
{
    const auto *row = std::ranges::find(kTitles, status, &TitleRow::status);
    return row == std::end(kTitles) ? (status < 400 ? "OK" : "Error") : row->title;
}

Answer answer_of(const Problem &problem)
{
    Json json = {{"type", "about:blank"},
                 {"title", status_title(problem.status)},
                 {"status", problem.status},
                 {"detail", problem.detail}};
    if (!problem.name.empty())
        json["name"] = problem.name;
    for (const FieldError &error : problem.errors)
        json["errors"].push_back({{"name", error.name}, {"detail", error.detail}});
    if (!problem.more.empty())
        json.update(Json::parse(problem.more));
    Answer answer{problem.status, "application/problem+json", text_of(json)};
    if (problem.retry_after)
        answer.headers.emplace_back("Retry-After", std::to_string(*problem.retry_after));
    if (!problem.allowed.empty())
        answer.headers.emplace_back("Allow", problem.allowed);
    if (problem.status == 401) // not Basic: a browser would ask by itself
        answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    return answer;
}

} // namespace qvcd::web
