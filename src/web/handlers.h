#pragma once

#include "web/routes.h"

namespace qvcd::web {

// What the table of routes refers to; each in the source of its family.

// session_routes.cpp
Answer log_in(Call &call);
Answer make_token(Call &call);
Answer show_session(Call &call);
Answer log_out(Call &call);

// values.cpp
Answer get_values(Call &call);
Answer get_value(Call &call);
Answer change_values(Call &call);

// descriptions.cpp
Answer describe(Call &call);
Answer menu(Call &call);
Answer wizard(Call &call);
Answer set_wizard(Call &call);

// changes.cpp
Answer state(Call &call);
Answer plan(Call &call);
Answer diff(Call &call);
Answer save(Call &call);
Answer apply(Call &call);
Answer revert(Call &call);
Answer commit(Call &call);
Answer confirm(Call &call);
Answer abort_commit(Call &call);
Answer history(Call &call);
Answer roll_back(Call &call);

// events.cpp
Answer listen(Call &call);

} // namespace qvcd::web
