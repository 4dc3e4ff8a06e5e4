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

// stored.cpp
Answer list_presets(Call &call);
Answer show_preset(Call &call);
Answer load_preset(Call &call);
Answer name_preset(Call &call);
Answer store_preset(Call &call);
Answer list_profiles(Call &call);
Answer show_profile(Call &call);
Answer load_profile(Call &call);
Answer save_profile(Call &call);
Answer remove_profile(Call &call);
Answer list_users(Call &call);
Answer put_user(Call &call);
Answer remove_user(Call &call);
Answer export_document(Call &call);
Answer import_document(Call &call);

// schema.cpp
Answer schema(Call &call);

// metrics.cpp
Answer metrics(Call &call);

// openapi.cpp
Answer openapi(Call &call);

// events.cpp
Answer listen(Call &call);

} // namespace qvcd::web
