#include "base/text.h"
#include "qvmeta/pages.h"

namespace qvcd {

namespace {

constexpr const char kHead[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<title>Reference of all APIs</title>
<style>
:root { color-scheme: light dark; --line: #8886; --soft: #8882; }
@media (prefers-color-scheme: light) { :root { --text: #1a1a1a; --back: #fff; } }
@media (prefers-color-scheme: dark) { :root { --text: #e6e6e6; --back: #16181c; } }
body { margin: 0 auto; max-width: 60rem; padding: 0 1rem 4rem; font: 1rem/1.5 system-ui, sans-serif;
  color: var(--text); background: var(--back); }
header { position: sticky; top: 0; padding: 1rem 0; background: var(--back); border-bottom: 1px solid var(--line); }
h1 { margin: 0 0 .5rem; font-size: 1.4rem; }
input { box-sizing: border-box; width: 100%; padding: .5rem; font: inherit; }
nav a { margin-right: 1rem; white-space: nowrap; }
article { margin: 1rem 0; padding: .75rem 1rem; border: 1px solid var(--line); border-radius: .5rem;
  scroll-margin-top: 11rem; }
h2 { scroll-margin-top: 9rem; }
h3 { margin: 0; overflow-wrap: anywhere; }
h3 a { color: inherit; text-decoration: none; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem; margin: .5rem 0 0; }
dt { opacity: .75; }
dd { margin: 0; overflow-wrap: anywhere; }
code { padding: 0 .25rem; background: var(--soft); border-radius: .25rem; }
</style>
</head>
<body>
<header>
<h1>Reference of all APIs</h1>
<label>Search <input id="search" type="search" autocomplete="off" autofocus></label>
<p id="count" role="status"></p>
)";

constexpr const char kTail[] = R"(<script>
"use strict";
const search = document.getElementById("search");
const count = document.getElementById("count");
const sections = [...document.querySelectorAll("section")].map(element => ({
  element,
  apis: [...element.querySelectorAll("article")].map(api => ({ element: api, text: api.textContent.toLowerCase() })),
}));
function show() {
  const words = search.value.toLowerCase().split(/\s+/).filter(word => word);
  let found = 0;
  for (const section of sections) {
    let here = 0;
    for (const api of section.apis) {
      const fits = words.every(word => api.text.includes(word));
      api.element.hidden = !fits;
      here += fits;
    }
    section.element.hidden = here === 0;
    found += here;
  }
  count.textContent = found + (found === 1 ? " API" : " APIs");
}
search.addEventListener("input", show);
show();
</script>
</body>
</html>
)";

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : one_line(std::string(text))) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string article(const ApiPage &api)
{
    const std::string name = escaped(api.name);
    std::string text = "<article id=\"" + name + "\">\n<h3><a href=\"#" + name + "\">" + name + "</a></h3>\n";
    for (const std::string &paragraph : {api.help, api.desc}) {
        if (!paragraph.empty())
            text += "<p>" + escaped(paragraph) + "</p>\n";
    }
    text += "<dl>\n";
    for (const auto &[label, value, is_literal] : api.facts) {
        const std::string inside = escaped(value);
        text += "<dt>" + escaped(label) + "</dt><dd>" +
                (is_literal ? "<code>" + inside + "</code>" : inside) + "</dd>\n";
    }
    return text + "</dl>\n</article>\n";
}

} // namespace

std::string html(const std::vector<Chapter> &chapters)
{
    std::string text = std::string(kHead) + "<nav>\n";
    for (const Chapter &chapter : chapters)
        text += "<a href=\"#group-" + escaped(chapter.name) + "\">" + escaped(chapter.name) + "</a>\n";
    text += "</nav>\n</header>\n<main>\n";
    for (const Chapter &chapter : chapters) {
        text +=
            "<section>\n<h2 id=\"group-" + escaped(chapter.name) + "\">" + escaped(chapter.name) + "</h2>\n";
        for (const ApiPage &api : chapter.apis)
            text += article(api);
        text += "</section>\n";
    }
    return text + "</main>\n" + kTail;
}

} // namespace qvcd
