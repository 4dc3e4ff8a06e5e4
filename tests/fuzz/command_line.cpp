// Fuzzing of whole command lines on a small appliance of its own: settings, users, profiles and presets, but
// nothing that runs a shell command. The input's first byte says whose rights the lines have. Whatever is
// said, a reply is made of whole lines without control characters, and shows no password to those who may not
// read it.

#include "auth/session.h"
#include "auth/user.h"
#include "base/command_lock.h"
#include "commands/cmd_parse.h"
#include "commands/cmd_table.h"
#include "commands/profile.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/check_map.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "funcs/write_map.h"
#include "fuzz.h"
#include "model/populate.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/menu.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>

// Nothing here outlives the run: the disk is spared.
void sync() noexcept {}
int fsync(int /*fd*/)
{
    return 0;
}

namespace {

constexpr char kSecret[] = "Zq7password";

constexpr char kModel[] = R"(
Box {
    perm = 7774
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/box.conf
    name {
        attr = name
        type = string
        default = none
        help = What it is called
        apply = no_apply
    }
    rate {
        attr = rate
        type = integer_range 1 9
        default = 4
    }
    word {
        attr = word
        type = blank,string_set one two
        default =
        shadow = /etc/shadow.conf
    }
    secret {
        attr = secret
        type = password
        default = none
        perm = 7700
    }
    other {
        attr = other
        default = 0
        link = Box.rate
    }
    __port {
        range = 1 2
        number {
            attr = port
            type = portnumber
            default = 80
        }
    }
    live {
        attr = live
        dynamic = true
        default = 1
    }
    Profiles {
        read = quotedkv_rfunc
        write = quotedkv_wfunc
        file = /etc/group.conf
        name {
            attr = NAME
            type = blank,profile2
            default =
            apply = profile2_apply
            add = profile_addfunc Box
            remove = profile_removefunc
        }
        desc {
            attr = DESC
            default =
            apply = no_apply
        }
    }
}
Web.Wizard.firstrun {
    perm = 7777
    attr = firstrun
    read = kv_rfunc
    write = kv_wfunc
    file = /etc/web.conf
    default = 0
}
System.Configuration.Profiles.current {
    perm = 7774
    attr = CURRENT
    type = profile
    default = default
    read = quotedkv_rfunc
    write = quotedkv_wfunc
    file = /etc/profiles.conf
    apply = profile_apply current
}
)";

struct File {
    const char *name;
    std::string text;
};

const File kFiles[] = {
    {"/model.hdf", kModel},
    {"/etc/box.conf",
     std::string("name=box\nrate=3\nword=one\nother=0\nport=80\nlive=1\nsecret=") + kSecret + "\n"},
    {"/etc/group.conf", "NAME=\"\"\nDESC=\"\"\n"},
    {"/etc/profiles.conf", "CURRENT=\"default\"\n"},
    {"/etc/web.conf", "firstrun=0\n"},
    {"/etc/user.conf",
     std::string("Group.1.perm = 777\nGroup.2.perm = 77\nUser.admin.group = 1\nUser.admin.passwd = ") +
         kSecret + "\nUser.op.group = 2\nUser.op.passwd = op\n"},
    {"/etc/profiles/p.hdf", "Box {\n  rate = 5\n  name = of+p\n}\n"},
    {"/etc/presets/preset.conf", "Preset.current=1"},
    {"/etc/presets/preset1", "Config.name=one\nBox.rate=2\nBox.word=two\n"},
    {"/etc/presets/template", "Box.rate\nBox.word\n"},
    {"/etc/wizard.hdf", "wizard.firstrun = 1\n"},
    {"/home/www/menu.hdf",
     "main.header.load = Box.name\nmain.page.load = Box.rate Box.word\nmain.page.introspect = Box.rate\n"},
    {"/tmp/in.hdf", "Box {\n  rate = 6\n  word = one\n}\n"},
};

class Appliance {
  public:
    Appliance()
    {
        for (const File &file : kFiles)
            root_.write(file.name, file.text);
        const qvcd::CommandLock lock;
        qvcd::Request request(qvcd::kInternalMask);
        qvcd::cmd_create_afuncmap_hdf();
        qvcd::cmd_create_cfuncmap_hdf();
        qvcd::cmd_create_ifuncmap_hdf();
        qvcd::cmd_create_rfuncmap_hdf();
        qvcd::cmd_create_wfuncmap_hdf();
        qvcd::cmd_create_addfuncmap_hdf();
        qvcd::cmd_create_removefuncmap_hdf();
        qvcd::cmd_create_cmdmap_hdf();
        qvcd::menu_load_db_file(qvcd::qv_device_file("/home/www/menu.hdf"));
        qvcd::hdfdb_init();
        qvcd::user_set_db_file(qvcd::qv_device_file("/etc/user.conf"));
        qvcd::user_load_db_file(qvcd::qv_device_file("/etc/user.conf"));
        require(qvcd::hdfdb_load_meta_file(request, qvcd::qv_device_file("/model.hdf")) == 0);
        qvcd::session_load_db_file(0);
        qvcd::hdfdb_populate(request);
        require(qvcd::hdfDB.get("Box.rate") == "3");
    }
    ~Appliance()
    {
        qvcd::session_unload_db_file();
        qvcd::hdfdb_destroy();
        qvcd::user_unload_db_file();
        qvcd::menu_unload_db_file();
        qvcd::cmd_destroy_cmdmap_hdf();
        root_.clear();
    }
    Appliance(const Appliance &) = delete;
    Appliance &operator=(const Appliance &) = delete;

  private:
    static const FuzzRoot root_; // the sysroot is asked for once
};
const FuzzRoot Appliance::root_;

std::string reply_to(unsigned mask, std::string_view line)
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    qvcd::cmd_parse(mask, line, out);
    std::fclose(out);
    std::string reply(text, size);
    std::free(text);
    return reply;
}

bool is_control(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte != '\n' && byte != '\t' && (byte < 0x20 || byte == 0x7f); // help texts have tabs
}

constexpr unsigned kMasks[] = {0xffff, 0x0fff, 0x00ff, 0x000f};
constexpr std::size_t kMayReadPasswords = 2; // the first of them

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const Appliance appliance;
    const std::size_t level = data[0] % std::size(kMasks);
    std::string_view lines = view_of(data + 1, size - 1);
    const bool secret_is_known = lines.find(kSecret) != std::string_view::npos;
    while (!lines.empty()) {
        const std::string reply = reply_to(kMasks[level], take_line(lines));
        require(reply.empty() || reply.back() == '\n');
        require(std::ranges::none_of(reply, is_control));
        require(reply.find("\n@\n") == std::string::npos && !reply.starts_with("@\n"));
        require(level < kMayReadPasswords || secret_is_known || reply.find(kSecret) == std::string::npos);
    }
    // The appliance is still one.
    require(reply_to(kMasks[0], "get System.Configuration.Profiles.current").starts_with("System."));
    return 0;
}
