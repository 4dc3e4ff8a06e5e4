#include "fleet/facts.h"

#include "funcs/read_map.h"
#include "store/api.h"
#include "store/meta.h"

#include <algorithm>
#include <optional>

namespace qvcd {

namespace {

constexpr std::string_view kUsual =
    "identity=System.Info.Product.serialnumber,host=Network.hostname,model=System.Info.Product.productname,"
    "version=System.Info.Version.firmware,label=System.Configuration.Label.name";

std::optional<std::string> value_of(Request &request, const std::string &name)
{
    const Api *const api = find_api(name);
    if (!api || api->is_secret())
        return std::nullopt;
    if (api->is_dynamic())
        return rfuncmap_read(request, name);
    const Api *const linked = api->linked();
    return std::string((linked ? linked : api)->value());
}

} // namespace

FactNames fact_names(std::string_view text)
{
    FactNames names;
    for (text = text.empty() ? kUsual : text; !text.empty();) {
        const std::string_view one = text.substr(0, text.find(','));
        text.remove_prefix(std::min(one.size() + 1, text.size()));
        const std::size_t equals = one.find('=');
        if (equals != std::string_view::npos && equals > 0)
            names.emplace_back(one.substr(0, equals), one.substr(equals + 1));
    }
    return names;
}

FactNames link_names()
{
    FactNames names;
    visit_apis("", [&](Api &api) {
        const MetaApi meta(api.name());
        if (meta.get("read") == "linkstate_rfunc")
            names.emplace_back("link." + std::string(meta.own("attr").value_or("eth0")), api.name());
    });
    return names;
}

Facts read_facts(Request &request, const FactNames &names)
{
    Facts facts;
    for (const auto &[fact, api] : names) {
        if (std::optional<std::string> value = value_of(request, api))
            facts.emplace_back(fact, std::move(*value));
    }
    return facts;
}

} // namespace qvcd
