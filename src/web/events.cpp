// The stream of events; what follows the answer is in web/event_hub.h.

#include "web/event_hub.h"
#include "web/handlers.h"

namespace qvcd::web {

Answer listen(Call &call)
{
    call.services.events.open(call.who);
    return {.type = "text/event-stream", .is_stream = true};
}

} // namespace qvcd::web
