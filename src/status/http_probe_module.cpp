#include "status/http_probe_module.h"

#include <curl/curl.h>
#include <memory>

namespace qvcd {

namespace {

constexpr long kTimeoutSeconds = 2;

bool library_is_ready()
{
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return ready;
}

std::size_t drop(char *, std::size_t size, std::size_t count, void *)
{
    return size * count;
}

bool reachable(const std::string &url, std::string &problem)
{
    if (!library_is_ready())
        return false;
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), curl_easy_cleanup);
    CURL *const curl = handle.get();
    if (!curl)
        return false;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_DEFAULT_PROTOCOL, "http");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, kTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);   // time-outs by signal would hit other threads
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L); // else a silent name server is waited for beyond the time
    // Any answer will do, and nothing is believed of it. A certificate says little anyway to a unit whose
    // clock has not been set yet.
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, drop);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK)
        problem = curl_easy_strerror(result);
    return result == CURLE_OK;
}

} // namespace

QVCD_MODULE(HttpProbeModule, reachable)

} // namespace qvcd
