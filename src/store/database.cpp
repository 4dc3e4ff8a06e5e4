#include "store/database.h"

#include "platform/log.h"
#include "store/flags.h"
#include "store/hdf_file.h"

namespace qvcd {

Tree hdfDB;
Tree metaDB;

int hdfdb_init()
{
    metaDB = Tree::make();
    hdfDB = Tree::make();
    flags_forget();
    return 0;
}

int hdfdb_load_file(const FileName &file)
{
    const HdfRead read = hdf_read_own_file(file.path, hdfDB);
    if (read.result == HdfResult::ok)
        return 0;
    qv_log_print(kLogError, "Can not load %s into the settings: %s\n", file.text.c_str(),
                 read.detail.c_str());
    return 1;
}

int hdfdb_destroy()
{
    hdfDB.destroy();
    metaDB.destroy();
    return 0;
}

} // namespace qvcd
