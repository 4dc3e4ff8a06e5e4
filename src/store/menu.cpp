#include "store/menu.h"

#include "platform/log.h"
#include "store/hdf_file.h"

namespace qvcd {

Tree menuDB;

namespace {

constexpr char kWizardFile[] = "/etc/wizard.hdf";

// Of the package that brings the metadata; a file of the device's own counts in its place.
constexpr char kPackagedMenu[] = "/usr/share/qvapi/menu.hdf";
constexpr char kPackagedWizard[] = "/usr/share/qvapi/wizard.hdf";

FileName menuDBFile;

// The result and detail are those of the file that was there.
HdfRead read_one_of(const std::string &path, const char *packaged, Tree &tree)
{
    HdfRead read = hdf_read_own_file_whole(path, tree);
    if (read.result == HdfResult::missing && !path.empty())
        read = hdf_read_own_file_whole(qv_sysroot_path(packaged), tree);
    return read;
}

} // namespace

int menu_load_db_file(const FileName &file)
{
    Tree fresh = Tree::make();
    const HdfRead menu = read_one_of(file.path, kPackagedMenu, fresh);
    if (menu.result == HdfResult::missing)
        return 0;
    if (menu.result == HdfResult::error) {
        menuDB.destroy();
        qv_log_print(kLogInfo, "Can not Load %s into menu DB\n", file.text.c_str());
        qv_log_print(kLogError, "%s: %s\n", file.text.c_str(), menu.detail.c_str());
        return 1;
    }
    menuDB = std::move(fresh);
    const HdfRead wizard = read_one_of(qv_sysroot_path(kWizardFile), kPackagedWizard, menuDB);
    if (wizard.result == HdfResult::missing)
        return 0;
    if (wizard.result == HdfResult::error)
        qv_log_print(kLogError, "%s: %s\n", kWizardFile, wizard.detail.c_str());
    menuDBFile = file;
    qv_log_print(kLogInfo, "Loading %s into menu DB\n", file.text.c_str());
    return 0;
}

int menu_unload_db_file()
{
    menuDB.destroy();
    return 0;
}

const FileName &menu_get_db_filename()
{
    return menuDBFile;
}

} // namespace qvcd
