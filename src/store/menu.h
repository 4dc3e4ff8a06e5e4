#pragma once

#include "platform/sysroot.h"
#include "store/tree.h"

namespace qvcd {

/// The menu of the web pages: for each page what it loads, and the state of the set-up wizard. Changed and
/// read only under the command lock.
extern Tree menuDB;

/// Makes menuDB from the menu file and, read on top of it, "/etc/wizard.hdf". Without the menu file nothing
/// is done. Returns 1 when the menu file is no good; there is no tree then. The file's name is kept only when
/// "/etc/wizard.hdf" exists: without the wizard a later reload finds no name and leaves the menu empty, which
/// the web pages count on.
int menu_load_db_file(const FileName &file);

/// Returns 0. The file's name stays.
int menu_unload_db_file();

/// The kept name; empty when there is none.
const FileName &menu_get_db_filename();

} // namespace qvcd
