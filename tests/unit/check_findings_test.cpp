#include "check/check.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

namespace qvcd {
namespace {

// A model without a mistake: one setting. A case replaces one of its lines, or adds some.
constexpr std::string_view kGood = R"(Lamp {
    perm = 7744
    file = /etc/lamp.conf
    level {
        attr = level
        type = integer_range 0 100
        default = 50
        read = kv_rfunc
        write = kv_wfunc
        apply = initd_restart lamp
        help = Level
    }
}
)";

struct Case {
    Kind kind;
    std::string_view line; // of kGood; "": none
    std::string_view instead;
    std::string_view finding; // "": nothing is wrong
};

constexpr std::string_view kEnd = "\n}\n"; // of the model: what stands instead is added to the group

// What is said to each kind of mistake.
const Case kCases[] = {
    {Kind::syntax, "type = integer_range 0 100", "type integer_range", "m:6: neither a value nor a group"},
    {Kind::syntax, "level {", "level { # how bright", "m:4: text behind a brace"},
    {Kind::syntax, kEnd, "\n}\n}\n", "m:14: a closing brace too many"},
    {Kind::syntax, "Lamp {", "\xEF\xBB\xBFLamp {", "m:1: a byte order mark: save the file without one"},
    {Kind::missing_brace, "    level {", "    group {\n        x {\n            attr = x\n    level {",
     "m:5: x: the group \"x\" has no closing brace; line 7 does not look like a part of it"},
    {Kind::given_twice, "default = 50", "default = 50\n        default = 60",
     "m:8: Lamp.level: \"default\" stands in line 7 already; the later one counts"},
    {Kind::no_api_at_all, "attr = level", "", "m: there is no API"},
    {Kind::no_attr, "attr = level", "", "m:4: Lamp.level: it has no attr, so it is no API"},
    {Kind::empty_group, kEnd, "\n    more {\n        help = Later\n    }\n}\n",
     "m:13: Lamp.more: warning: there is no API in this group"},
    {Kind::api_in_api, "help = Level", "help = Level\n        inner {\n            attr = i\n        }",
     "m:4: Lamp.level: it has an attr, and there are APIs below it: it cannot hold a value"},
    {Kind::unknown_attribute, "type = integer_range 0 100", "tpye = integer_range 0 100",
     "m:6: Lamp.level: no attribute \"tpye\"; did you mean \"type\"?"},
    {Kind::unknown_attribute, "help = Level", "help = Level\n        colour = red",
     "m:12: Lamp.level: no attribute \"colour\""},
    {Kind::misplaced_attribute, "perm = 7744", "perm = 7744\n    default = 1",
     "m:3: Lamp: warning: \"default\" counts on an API only, and this is a group"},
    {Kind::misplaced_attribute, kEnd, "\n}\nperm = 7744\n",
     "m:14: warning: \"perm\" stands in no group: it counts for nothing"},
    {Kind::daemon_attribute, "help = Level", "help = Level\n        mod = 1",
     "m:12: Lamp.level: warning: the daemon writes \"mod\" itself"},
    {Kind::bad_value, "help = Level", "help << EOM\nLevel\nEOM",
     "m:13: Lamp.level: \"help\" has several lines"},
    {Kind::bad_value, "help = Level", "help = Le\x1bvel",
     "m:11: Lamp.level: \"help\" has control characters"},
    {Kind::bad_switch, "help = Level", "help = Level\n        dynamic = yes",
     "m:12: Lamp.level: dynamic is \"yes\", neither true nor false"},
    {Kind::bad_timeout, "help = Level", "help = Level\n        timeout = 5m",
     "m:12: Lamp.level: timeout is \"5m\", not a number of seconds from 1"},
    {Kind::bad_metric, "help = Level", "help = Level\n        metric = gage",
     "m:12: Lamp.level: metric is \"gage\", neither gauge nor counter"},
    {Kind::bad_metric, "integer_range 0 100", "string\n        metric = gauge",
     "m:7: Lamp.level: a metric is a number, and the type is \"string\""},
    {Kind::bad_path, "file = /etc/lamp.conf", "file = etc/lamp.conf",
     "m:4: Lamp.level: file is \"etc/lamp.conf\", not an absolute path"},
    {Kind::unknown_type, "integer_range 0 100", "interger_range 0 100",
     "m:6: Lamp.level: no type \"interger_range\"; did you mean \"integer_range\"?"},
    {Kind::unknown_type, "integer_range 0 100", "string_set 50, 60", "m:6: Lamp.level: no type \"60\""},
    {Kind::type_arguments, "integer_range 0 100", "integer_range 100",
     "m:6: Lamp.level: integer_range takes a least and a most number and has 1 argument(s)"},
    {Kind::type_arguments, "integer_range 0 100", "integer_range 0 1o0",
     "m:6: Lamp.level: \"1o0\" is no number for a bound of integer_range"},
    {Kind::type_arguments, "integer_range 0 100", "integer 0 100",
     "m:6: Lamp.level: integer takes no arguments"},
    {Kind::type_arguments, "integer_range 0 100", "integer_set",
     "m:6: Lamp.level: integer_set has no members: it takes no value"},
    {Kind::type_arguments, "integer_range 0 100", "url,integer",
     "m:6: Lamp.level: url has no words: it takes no value"},
    {Kind::type_arguments, "integer_range 0 100", "host_list few,integer",
     "m:6: Lamp.level: host_list takes a number above 0, or nothing"},
    {Kind::type_arguments, "integer_range 0 100", "ip_prefix 5,integer",
     "m:6: Lamp.level: ip_prefix takes 4 or 6, or nothing"},
    {Kind::range_reversed, "integer_range 0 100", "integer_range 100 0",
     "m:6: Lamp.level: integer_range 100 0: the least number is more than the most"},
    {Kind::range_reversed, "integer_range 0 100", "float_range 99.5 0.5",
     "m:6: Lamp.level: float_range 99.5 0.5: the least number is more than the most"},
    {Kind::bad_member, "integer_range 0 100", "integer_set 50 full",
     "m:6: Lamp.level: \"full\" is never taken as a member of integer_set"},
    {Kind::member_twice, "integer_range 0 100", "integer_set 50 60 50",
     "m:6: Lamp.level: warning: \"50\" is a member twice"},
    {Kind::blank_behind, "integer_range 0 100", "integer_range 0 100,blank",
     "m:6: Lamp.level: warning: write \"blank\" first: the last alternative says what is wrong with a value"},
    {Kind::no_type, "type = integer_range 0 100", "",
     "m:4: Lamp.level: warning: there is no type: every value is good"},
    {Kind::unknown_description, "help = Level", "help = Level\n        introspect = booleen",
     "m:12: Lamp.level: no description \"booleen\"; did you mean \"boolean\"?"},
    {Kind::bad_default, "default = 50", "default = 101",
     "m:7: Lamp.level: the default \"101\" does not fit the type \"integer_range 0 100\""},
    {Kind::bad_default, "default = 50",
     "default =", "m:7: Lamp.level: the default \"\" does not fit the type \"integer_range 0 100\""},
    {Kind::no_default, "default = 50", "",
     "m:4: Lamp.level: there is no default, and the type \"integer_range 0 100\" takes no empty value"},
    {Kind::unknown_reader, "read = kv_rfunc", "read = vk_rfunc",
     "m:8: Lamp.level: no read function \"vk_rfunc\"; did you mean \"kv_rfunc\"?"},
    {Kind::reader_arguments, "file = /etc/lamp.conf", "", "m:4: Lamp.level: kv_rfunc has no file to read"},
    {Kind::reader_arguments, "read = kv_rfunc", "read = info_get_uptime",
     "m:5: Lamp.level: info_get_uptime does not know \"level\""},
    {Kind::reader_arguments, "read = kv_rfunc", "read = model_rfunc",
     "m:5: Lamp.level: model_rfunc reads the API \"level\", which does not exist"},
    {Kind::no_reader, "read = kv_rfunc", "", "m:4: Lamp.level: there is no read function"},
    {Kind::unknown_writer, "write = kv_wfunc", "write = kv_rfunc",
     "m:9: Lamp.level: no write function \"kv_rfunc\"; did you mean \"kv_wfunc\"?"},
    {Kind::writer_arguments, "attr = level", "attr =", "m:5: Lamp.level: kv_wfunc needs a key in \"attr\""},
    {Kind::writer_arguments, "integer_range 0 100\n        default = 50", "string\n        default = =50",
     "m:7: Lamp.level: kv_wfunc cannot write the default \"=50\": it would not read back: it begins like a "
     "separator"},
    {Kind::no_writer, "write = kv_wfunc", "",
     "m:4: Lamp.level: it may be set, and there is no write function"},
    {Kind::unsaveable, "write = kv_wfunc", "write = no_wfunc",
     "m:9: Lamp.level: it may be set, but no_wfunc never saves anything"},
    {Kind::unlike_formats, "write = kv_wfunc", "write = quotedkv_wfunc",
     "m:4: Lamp.level: kv_rfunc does not read what quotedkv_wfunc writes"},
    {Kind::unknown_action, "initd_restart lamp", "init_restart lamp",
     "m:10: Lamp.level: no apply function \"init_restart\"; did you mean \"initd_restart\"?"},
    {Kind::unknown_action, "initd_restart lamp", "initd_restart lamp, lamps",
     "m:10: Lamp.level: no apply function \"lamps\""},
    {Kind::action_arguments, "initd_restart lamp", "syscall a b c d e f",
     "m:10: Lamp.level: syscall takes 1 to 5 argument(s) and has 6"},
    {Kind::action_arguments, "initd_restart lamp", "syscall echo \"a b\"",
     "m:10: Lamp.level: quotes keep no words together here: put the command into a script"},
    {Kind::action_arguments, "initd_restart lamp", "syscall_delay reboot now",
     "m:10: Lamp.level: syscall_delay begins with seconds, not with \"reboot\""},
    {Kind::outside_root, "initd_restart lamp", "syscall /bin/lamp",
     "m:10: Lamp.level: warning: \"/bin/lamp\" is not below $QV_SYSROOT"},
    {Kind::unknown_member_function, "help = Level", "help = Level\n        add = profile_adfunc Lamp",
     "m:12: Lamp.level: no add function \"profile_adfunc\"; did you mean \"profile_addfunc\"?"},
    {Kind::member_arguments, "help = Level", "help = Level\n        add = profile_addfunc Lamps",
     "m:12: Lamp.level: there is no group or API \"Lamps\""},
    {Kind::member_arguments, "help = Level", "help = Level\n        remove = profile_removefunc Lamp",
     "m:12: Lamp.level: profile_removefunc takes no arguments: with them it is not found"},
    {Kind::bad_perm, "perm = 7744", "perm = 0x7744",
     "m:2: Lamp: perm is \"0x7744\", not one digit from 0 to 7 for each level"},
    {Kind::nobody, "perm = 7744", "", "m:4: Lamp.level: there is no perm: nobody may do anything"},
    {Kind::nobody, "perm = 7744", "perm = 0000", "m:2: Lamp: perm is 0000: nobody may do anything"},
    {Kind::nobody_sets, "perm = 7744", "perm = 4444",
     "m:4: Lamp.level: warning: perm is 4444: nobody may set it"},
    {Kind::everybody_sets, "perm = 7744", "perm = 7777",
     "m:2: Lamp: warning: perm is 7777: those who only look on may set it"},
    {Kind::nobody_applies, "perm = 7744", "perm = 7644",
     "m:4: Lamp.level: warning: perm is 7644: who may set it on one of the levels may not apply it"},
    {Kind::open_secret, "type = integer_range 0 100", "type = password",
     "m:4: Lamp.level: warning: a password that perm 7744 shows to others than administrators"},
    {Kind::untyped_secret, "level {", "passwd {",
     "m:6: Lamp.passwd: warning: the name speaks of a secret, the type is no password"},
    {Kind::same_key, kEnd,
     "\n    more {\n        attr = level\n        default = 1\n        type = boolean\n"
     "        read = kv_rfunc\n        write = kv_wfunc\n        help = More\n    }\n}\n",
     "m:13: Lamp.more: \"level\" of /etc/lamp.conf is written by Lamp.level, m:4, too"},
    {Kind::same_shadow, "help = Level", "help = Level\n        shadow = /etc/lamp.conf",
     "m:12: Lamp.level: shadow is the file itself, /etc/lamp.conf"},
    {Kind::bad_link, "help = Level", "help = Level\n        link = Lamp.levle",
     "m:12: Lamp.level: it links to \"Lamp.levle\", which is no API"},
    {Kind::bad_link, "help = Level", "help = Level\n        link = Lamp.level",
     "m:12: Lamp.level: its link leads back to itself"},
    {Kind::bad_former_name, "help = Level", "help = Level\n        was = Lamp.level",
     "m:12: Lamp.level: there is still an API Lamp.level"},
    {Kind::bad_former_name, kEnd,
     "\n    A {\n        attr = a\n        was = Old\n    }\n    B {\n        attr = b\n"
     "        was = Old\n    }\n}\n",
     "m:19: Lamp.B: Old is claimed by Lamp.A, m:15, too"},
    {Kind::template_name, "level {", "level__d {",
     "m:4: Lamp.level__d: a name with \"__\" is a template's, and those begin with it"},
    {Kind::no_range, "level {", "__d {", "m:4: Lamp.__d: a template without a range: there are no copies"},
    {Kind::bad_range, "level {", "__d {\n        range = 4 1", "m:5: Lamp.__d: range 4 1 makes no copies"},
    {Kind::bad_range, "level {", "__d {\n        range = 1 Lamp.count",
     "m:5: Lamp.__d: range ends with \"Lamp.count\", which is no API"},
    {Kind::bad_range, "level {", "__d {\n        range = 1",
     "m:5: Lamp.__d: range is \"1\", not START LAST [STEP]"},
    {Kind::bad_range, "    level {",
     "    __d {\n        range = 1 1000\n    }\n    __d.__d {\n        range = 0 999",
     "m:8: Lamp.__d.__d: range makes, with those around it, more than 131072 copies"},
    {Kind::unused_range, "perm = 7744", "perm = 7744\n    range = 1 4",
     "m:3: Lamp: warning: there is no template here, whose name begins with \"__\""},
    {Kind::copies_share_key, "level {", "__d {\n        range = 1 4",
     "m:4: Lamp.__d: all copies of Lamp.__d write the same key of the same file: \"__d\" stands for the "
     "number"},
    {Kind::no_help, "help = Level", "",
     "m:4: Lamp.level: warning: there is no help: the help pages leave it out"},
};

std::string mutant(const Case &one)
{
    std::string text(kGood);
    const std::size_t at = one.line == kEnd ? text.rfind(kEnd) : text.find(one.line);
    EXPECT_NE(at, std::string::npos) << one.line;
    return text.replace(at, one.line.size(), one.instead);
}

std::vector<Finding> findings_of(const std::string &text, const CheckOptions &options = {})
{
    Source source;
    source.load_text("m", text);
    return check_model(source, options);
}

TEST(Findings, EachMistakeIsNamedWhereItStands)
{
    EXPECT_TRUE(findings_of(std::string(kGood)).empty());
    for (const Case &one : kCases) {
        std::set<std::string> lines;
        for (const Finding &finding : findings_of(mutant(one))) {
            if (finding.kind == one.kind)
                lines.insert(finding_line(finding));
        }
        EXPECT_EQ(lines, std::set<std::string>{std::string(one.finding)}) << row_of(one.kind).word;
    }
}

TEST(Findings, EveryKindIsTriedAndSensibleModelsAreClean)
{
    std::set<Kind> tried{Kind::unreadable, Kind::no_folder, Kind::no_script}; // below
    for (const Case &one : kCases)
        tried.insert(one.kind);
    for (const KindRow &row : finding_kinds())
        EXPECT_TRUE(tried.contains(row.kind)) << row.word;

    constexpr std::string_view kTemplates = R"(A {
    perm = 7774
    read = kv_rfunc
    write = kv_wfunc
    count {
        attr = c
        type = integer_range 1 8
        default = 4
        file = /etc/a.conf
        help = Channels
    }
    __d {
        range = 1 A.count
        file = /etc/a__d.conf
        __d {
            range = 0 3
            gain {
                attr = gain__d
                type = signed_integer_range -60 __d
                default = 0
                help = Gain
                was = A.old__d
            }
        }
    }
    first {
        attr = gain0
        type = signed_integer_range -60 0
        default = 0
        file = /etc/a1.conf
        link = A.1.0.gain
        help = The first
    }
}
)";
    for (const Finding &one : findings_of(std::string(kTemplates)))
        ADD_FAILURE() << finding_line(one);
}

TEST(Findings, WhatIsBeyondTheLimitsIsOneMistake)
{
    std::string deep = "a = 1\n}\n";
    for (int i = 0; i < 100; ++i)
        deep = "g {\n" + deep + "}\n";
    const std::string good(kGood);
    for (const auto &[text, said] :
         {std::pair{"A {\n" + deep, "m:65: nested too deeply"},
          std::pair{std::string(1024, 'a') + " {\n attr = x\n}\n", "m:1: the name is too long"}}) {
        const std::vector<Finding> findings = findings_of(text + good);
        EXPECT_EQ(std::ranges::count(findings, Kind::syntax, &Finding::kind), 1) << said;
        EXPECT_EQ(finding_line(*std::ranges::find(findings, Kind::syntax, &Finding::kind)), said);
        EXPECT_EQ(std::ranges::count(findings, Kind::missing_brace, &Finding::kind), 0) << said;
    }
}

TEST(Findings, FilesOfTheApplianceAndOfTheModel)
{
    const TempFolder folder;
    std::filesystem::create_directories(folder.path() + "/etc/init.d");
    std::vector<std::string> lines;
    for (const Finding &one : findings_of(std::string(kGood), {folder.path()}))
        lines.push_back(finding_line(one));
    EXPECT_EQ(lines, std::vector<std::string>{"m:10: Lamp.level: there is no /etc/init.d/lamp"});

    std::filesystem::remove_all(folder.path() + "/etc");
    EXPECT_EQ(finding_line(findings_of(std::string(kGood), {folder.path()}).front()),
              "m:3: Lamp: the folder of /etc/lamp.conf does not exist");

    Source source;
    source.load(folder.path() + "/none.hdf");
    ASSERT_EQ(check_model(source).size(), 1U);
    EXPECT_EQ(finding_line(check_model(source).front()),
              folder.path() + "/none.hdf: cannot be read: No such file or directory");
}

} // namespace
} // namespace qvcd
