#include "store/menu.h"

#include "platform/log.h"
#include "store/hdf_file.h"

namespace qvcd {

Tree menuDB;

namespace {

constexpr char kWizardFile[] = "/etc/wizard.hdf";

FileName menuDBFile;

} // namespace

int menu_load_db_file(const FileName &file)
{
    Tree fresh = Tree::make();
    const HdfRead menu = hdf_read_own_file_whole(file.path, fresh);
    if (menu.result == HdfResult::missing)
        return 0;
    if (menu.result == HdfResult::error) {
        menuDB.destroy();
        qv_log_print(kLogInfo, "Can not Load %s into menu DB\n", file.text.c_str());
        qv_log_print(kLogError, "%s: %s\n", file.text.c_str(), menu.detail.c_str());
        return 1;
    }
    menuDB = std::move(fresh);
    const HdfRead wizard = hdf_read_own_file_whole(qv_sysroot_path(kWizardFile), menuDB);
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
