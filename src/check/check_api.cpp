// What the attributes of an API, its own and those it inherits, are together.

#include "base/lookup.h"
#include "base/text.h"
#include "check/check_type.h"
#include "check/nearest.h"
#include "check/report.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "platform/password_type.h"

#include <algorithm>
#include <array>

namespace qvcd {

namespace {

class ApiCheck {
  public:
    ApiCheck(Report &report, const ModelNode &api)
        : report_(report), api_(api), perm_(api.perm()), is_dynamic_(api.is_dynamic()),
          reader_(find_row(read_rows(), api.get("read").value_or(""))),
          writer_(find_row(write_rows(), api.get("write").value_or("")))
    {
    }

    void run()
    {
        check_perm();
        check_type();
        check_default();
        check_reader();
        check_writer();
        check_formats();
        check_secret();
        check_metric();
        if (!api_.own("help"))
            add(Kind::no_help, "there is no help: the help pages leave it out");
    }

  private:
    void add(Kind kind, std::string what) { report_.add(kind, api_.node(), api_.name(), std::move(what)); }

    // In the line of the attribute, when it is the API's own.
    void add(Kind kind, std::string_view attribute, std::string what)
    {
        const Node own = api_.node().child(attribute);
        report_.add(kind, own ? own : api_.node(), api_.name(), std::move(what));
    }

    bool may_be_set() const { return (perm_ & kWriteBits) != 0; }
    bool writes() const { return writer_ && writer_->kind != WriteKind::none; }

    void check_perm()
    {
        if (!api_.get("perm"))
            return add(Kind::nobody, "there is no perm: nobody may do anything");
        if (!is_dynamic_ && writes() && perm_ != 0 && !may_be_set())
            add(Kind::nobody_sets, "perm", "perm is " + *api_.get("perm") + ": nobody may set it");
        const unsigned may_set = (perm_ & kWriteBits) >> 1;
        if (api_.get("apply") && !is_dynamic_ && (may_set & ~perm_ & kApplyBits))
            add(Kind::nobody_applies, "perm",
                "perm is " + *api_.get("perm") + ": who may set it on one of the levels may not apply it");
    }

    void check_type()
    {
        if (!api_.get("type"))
            add(Kind::no_type, "there is no type: every value is good");
    }

    void check_default()
    {
        const auto type = api_.get("type");
        const auto fallback = api_.own("default");
        if (fallback && type) {
            if (const auto why = type_refusal(*type, api_.name(), *fallback))
                add(Kind::bad_default, "default",
                    "the default " + quote(*fallback) + " does not fit the type " + quote(*type));
        }
        const bool is_moment = type == "timecode"; // none is good for ever
        if (fallback || is_dynamic_ || !may_be_set() || !writes() || !type || is_moment)
            return;
        if (type_refusal(*type, api_.name(), ""))
            add(Kind::no_default,
                "there is no default, and the type " + quote(*type) + " takes no empty value");
    }

    void check_reader()
    {
        if (!api_.get("read"))
            return add(Kind::no_reader, "there is no read function");
        if (!reader_)
            return;
        check_read_file();
        check_read_attr();
    }

    void add_reader(std::string_view attribute, std::string what)
    {
        add(Kind::reader_arguments, attribute, std::string(reader_->name) + " " + std::move(what));
    }

    void check_read_file()
    {
        const std::string file = api_.get("file").value_or("");
        switch (reader_->file) {
        case ReadFile::unused:
            break;
        case ReadFile::path:
            if (file.empty())
                add_reader("file", "has no file to read");
            else if (!file.starts_with('/'))
                add(Kind::bad_path, "file", "file is " + quote(file) + ", not an absolute path");
            break;
        case ReadFile::server:
            if (file.empty())
                add_reader("file", "needs the name of a server in \"file\"");
            break;
        case ReadFile::group:
            if (!find_in_model(report_.root(), file))
                add_reader("file", "publishes below the group " + quote(file) + ", which does not exist");
            break;
        }
    }

    void check_read_attr()
    {
        const std::string attr = api_.get("attr").value_or("");
        if (reader_->attr == ReadAttr::api && !find_in_model(report_.root(), attr))
            return add_reader("attr", "reads the API " + quote(attr) + ", which does not exist");
        if (reader_->words.empty())
            return;
        const std::vector<std::string> known = split_words(reader_->words, " ");
        std::string word = attr;
        if (reader_->attr == ReadAttr::device_words)
            word = attr.substr(attr.find_last_of(' ') + 1); // npos + 1 is 0
        if (std::ranges::find(known, word) == known.end())
            add_reader("attr",
                       "does not know " + quote(word) + suggestion(word, {known.begin(), known.end()}));
    }

    void check_writer()
    {
        if (!may_be_set() || api_.own("link"))
            return;
        if (!api_.get("write"))
            return add(Kind::no_writer, "it may be set, and there is no write function");
        if (!writer_)
            return;
        const std::string file = api_.get("file").value_or("");
        switch (writer_->kind) {
        case WriteKind::none:
            add(Kind::unsaveable, "write",
                "it may be set, but " + std::string(writer_->name) + " never saves anything");
            break;
        case WriteKind::text:
            if (api_.get("attr").value_or("").empty())
                add_writer("attr", "needs a key in \"attr\"");
            else
                check_written_default();
            [[fallthrough]];
        case WriteKind::device:
            check_write_file(file);
            break;
        case WriteKind::call:
            break;
        }
    }

    void check_written_default()
    {
        const std::string fallback = api_.own("default").value_or("");
        const char *why = writer_->text->refuses(*api_.get("attr"), fallback);
        if (!fallback.empty() && why)
            add_writer("default", "cannot write the default " + quote(fallback) + ": " + why);
    }

    void add_writer(std::string_view attribute, std::string what)
    {
        add(Kind::writer_arguments, attribute, std::string(writer_->name) + " " + std::move(what));
    }

    void check_write_file(const std::string &file)
    {
        if (file.empty())
            return add_writer("file", "has no file to write to");
        if (!file.starts_with('/')) {
            if (!reader_ || reader_->file != ReadFile::path) // else it was told
                add(Kind::bad_path, "file", "file is " + quote(file) + ", not an absolute path");
            return;
        }
        if (api_.get("shadow") == file)
            add(Kind::same_shadow, "shadow", "shadow is the file itself, " + file);
    }

    void check_formats()
    {
        struct Pair {
            std::string_view write;
            std::array<std::string_view, 2> unlike; // read functions
        };
        static constexpr Pair kUnlike[] = {
            {"kv_wfunc", {"quotedkv_rfunc", "ntp_rfunc"}},
            {"quotedkv_wfunc", {"kv_rfunc", "ntp_rfunc"}},
            {"ntp_wfunc", {"kv_rfunc", "quotedkv_rfunc"}},
        };
        const Pair *pair = nullptr;
        for (const Pair &row : kUnlike)
            pair = writer_ && row.write == writer_->name ? &row : pair;
        if (pair && reader_ && may_be_set() &&
            std::ranges::find(pair->unlike, reader_->name) != pair->unlike.end())
            add(Kind::unlike_formats,
                std::string(reader_->name) + " does not read what " + std::string(writer_->name) + " writes");
    }

    void check_secret()
    {
        const bool is_password = is_password_type(api_.get("type").value_or(""));
        if (is_password && (perm_ & kReadBits & 0x00ff))
            add(Kind::open_secret, "perm",
                "a password that perm " + api_.get("perm").value_or("") +
                    " shows to others than administrators");
        static constexpr std::string_view kSecrets[] = {"passw", "passphrase", "secret", "wepkey", "psk"};
        std::string name = api_.name().substr(api_.name().rfind('.') + 1);
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        const bool sounds_secret = std::ranges::any_of(
            kSecrets, [&](std::string_view word) { return name.find(word) != std::string::npos; });
        const bool is_blank = reader_ && reader_->attr == ReadAttr::unused; // shows stars, or nothing
        if (sounds_secret && !is_password && may_be_set() && !is_blank)
            add(Kind::untyped_secret, "type", "the name speaks of a secret, the type is no password");
    }

    void check_metric()
    {
        const auto metric = api_.own("metric");
        const auto type = api_.get("type");
        if (metric && metric != "gauge" && metric != "counter")
            add(Kind::bad_metric, "metric", "metric is " + quote(*metric) + ", neither gauge nor counter");
        else if (metric && !(type && has_numbers(*type)))
            add(Kind::bad_metric, "metric",
                "a metric is a number, and the type is " + quote(type.value_or("")));
    }

    Report &report_;
    const ModelNode &api_;
    unsigned perm_;
    bool is_dynamic_;
    const ReadRow *reader_;
    const WriteRow *writer_;
};

} // namespace

void check_api(Report &report, const ModelNode &api)
{
    ApiCheck(report, api).run();
}

} // namespace qvcd
