#include "auth/session.h"

#include "auth/first_password.h"
#include "auth/password_check.h"
#include "auth/session_list.h"
#include "auth/user.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/reply.h"
#include "base/text.h"
#include "platform/crypto.h"
#include "platform/log.h"
#include "store/hdf_file.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <map>
#include <sstream>
#include <vector>

namespace qvcd {

namespace {

struct Field {
    const char *name;
    const char *value;
};

// The word in "login" is no time: clients know the local session by it.
constexpr Field kRootSession[] = {
    {"Session.0.user", "root"},
    {"Session.0.perm", "7777"},
    {"Session.0.group", "0"},
    {"Session.0.login", "root"},
};

constexpr std::string_view kLocal = "local";

struct LoginName {
    std::string user;
    std::optional<std::string> prefix;
};

LoginName split_login_name(std::string_view name)
{
    const std::string text = cut(name, kMaxNameBytes);
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        return {text, std::nullopt};
    const std::size_t user = colon + 1;
    return {text.substr(user, text.find(':', user) - user), text.substr(0, colon)};
}

bool lists_root = false; // session checking is off

// Where a session was logged in.
struct Origin {
    std::string source;
    bool local;
};
constexpr std::size_t kMaxOrigins = 16; // of one session; the one that was noted first goes

// What is not shown of a session.
struct Login {
    std::vector<Origin> origins;
    std::shared_ptr<SessionUse> use = std::make_shared<SessionUse>();
};
std::map<int, Login> logins; // all but session 0

SessionUse::Time looked_for_idle_ones; // last
bool told_of_too_many = false;

void note_origin(int n, const Caller &caller)
{
    std::vector<Origin> &noted = logins[n].origins;
    if (std::ranges::find(noted, caller.source, &Origin::source) != noted.end())
        return;
    if (noted.size() >= kMaxOrigins)
        noted.erase(noted.begin());
    noted.push_back({caller.source, caller.local});
}

// Names, addresses and servers are printed in replies.
std::string noted(std::optional<std::string_view> text)
{
    return one_line(cut(text.value_or(kLocal), kMaxValueBytes));
}

std::string session_name(int n)
{
    return "Session." + std::to_string(n);
}

std::optional<int> find_session(std::string_view user, std::string_view address)
{
    for (const Node session : sessionDB.find("Session")) {
        const int n = c_int(session.name());
        if (n != 0 && session.get("user") == user && session.get("ip") == address)
            return n;
    }
    return std::nullopt;
}

// 10 to 97,612,903: the range that clients know.
int new_session_number()
{
    for (;;) {
        const int n = static_cast<int>(static_cast<double>(qvcrypto_random31()) / 22.0 + 10.0);
        if (!session_get_hdf(n))
            return n;
    }
}

// A number that the credentials give and that somebody else has must not take his session over.
int credentials_session_number(const LoginName &login, std::string_view password)
{
    const std::string text = *login.prefix + ":" + login.user + ":" + std::string(password);
    const int n = qvcrypto_get_md5_session(cut(text, kMaxValueBytes));
    return session_get_hdf(n) ? new_session_number() : n;
}

std::vector<int> session_numbers()
{
    std::vector<int> numbers;
    for (const Node session : sessionDB.find("Session"))
        numbers.push_back(c_int(session.name()));
    return numbers;
}

void write_list()
{
    std::vector<int> numbers = session_numbers();
    if (!lists_root)
        std::erase(numbers, 0);
    session_write_list(numbers);
}

std::string local_time_text()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%c");
    return text.str();
}

void write_rights(const std::string &session, const std::string &user)
{
    sessionDB.set(session + ".perm", mask_text(user_get_perm(user)));
    sessionDB.set(session + ".group", user_get_group(user).value_or(""));
}

void follow_user(int n, const std::string &user)
{
    const std::string name = session_name(n);
    const std::string before = sessionDB.get_or(name + ".perm", "");
    write_rights(name, user);
    const std::shared_ptr<SessionUse> use = session_use(n);
    if (use && before != sessionDB.get_or(name + ".perm", ""))
        use->note_change();
}

void end_session(int n)
{
    sessionDB.remove(session_name(n));
    if (const std::shared_ptr<SessionUse> use = session_use(n))
        use->note_change();
    logins.erase(n);
}

bool was_logged_in_from(const Login &login, const std::string &source)
{
    return std::ranges::find(login.origins, source, &Origin::source) != login.origins.end();
}

// One source that logs in again and again must not end the sessions of others.
void make_room(const std::string &source)
{
    if (logins.size() < kMaxSessions)
        return;
    const auto rank = [&](const auto &login) {
        return std::pair(!was_logged_in_from(login.second, source), login.second.use->last());
    };
    const auto oldest = std::ranges::min_element(logins, {}, rank);
    if (!told_of_too_many)
        qv_log_print(kLogWarning, "More than %zu sessions: those that were idle longest end\n", kMaxSessions);
    told_of_too_many = true;
    end_session(oldest->first);
}

void write_session(int n, const std::string &user, const std::string &address, const std::string &server)
{
    const std::string name = session_name(n);
    sessionDB.set(name + ".user", user);
    write_rights(name, user);
    sessionDB.set(name + ".login", local_time_text());
    sessionDB.set(name + ".ip", address);
    sessionDB.set(name + ".server", server);
}

} // namespace

Tree sessionDB;

int session_load_db_file(int unchecked)
{
    sessionDB = Tree::make();
    for (const Field &field : kRootSession)
        sessionDB.set(field.name, field.value);
    qv_log_print(kLogInfo, "Load session DB\n");
    lists_root = unchecked != 0;
    write_list();
    return 0;
}

int session_unload_db_file()
{
    session_write_list({});
    sessionDB.destroy();
    logins.clear();
    looked_for_idle_ones = {};
    told_of_too_many = false;
    return 0;
}

namespace {

// A built-in password logs nobody in from elsewhere, but for a browser that gives another one with it: so the
// appliance is taken into use without a shell. Who has another password already changes it with
// `user.passwd`.
LoginResult change_built_in(const Credentials &credentials, const std::string &user, const Caller &caller,
                            PasswordCheck &check)
{
    if (check.verdict == Verdict::right)
        return credentials.new_password
                   ? LoginResult{kNewPasswordRefused, {}, "##Only a built-in password is changed so#"}
                   : LoginResult{0};
    if (!credentials.new_password || !is_gateway(caller))
        return {kBuiltInPassword};
    if (const char *error = replace_built_in_password(user, *credentials.new_password))
        return {kNewPasswordRefused, {}, error};
    check.password = *credentials.new_password;
    return {0};
}

// 0 when the password is right; then `password` is the one that was meant.
LoginResult check_login(const Credentials &credentials, const LoginName &login, const Caller &caller,
                        std::string &password)
{
    user_reread_db_file();
    session_end_idle();
    const bool known = user_get_perm(login.user) != 0 && is_one_line(login.prefix.value_or(""));
    const std::string user = known ? login.user : cut(credentials.name, kMaxNameBytes);
    PasswordCheck check = check_password(user, credentials.passwords, caller, credentials.ip.value_or(""));
    if (check.verdict == Verdict::early)
        return {kTooEarly, check.wait};
    if (!known || user_get_perm(login.user) == 0) // he may have gone meanwhile
        return {kUnknownUser};
    if (check.verdict == Verdict::wrong)
        return {kWrongPassword};
    if (const LoginResult change = change_built_in(credentials, login.user, caller, check);
        change.session < 0)
        return change;
    password = std::move(check.password);
    return {0};
}

} // namespace

LoginResult session_check(const Credentials &credentials, const Caller &caller)
{
    std::string password;
    return check_login(credentials, split_login_name(credentials.name), caller, password);
}

LoginResult session_login(const Credentials &credentials, const Caller &caller)
{
    const LoginName login = split_login_name(credentials.name);
    std::string password;
    if (const LoginResult check = check_login(credentials, login, caller, password); check.session < 0)
        return check;
    const std::string address = login.prefix ? *login.prefix : noted(credentials.ip);
    std::optional<int> n = find_session(login.user, address);
    if (!n) {
        make_room(caller.source);
        n = login.prefix ? credentials_session_number(login, password) : new_session_number();
        write_session(*n, login.user, address, noted(credentials.server));
        write_list();
    }
    note_origin(*n, caller);
    logins[*n].use->note();
    return {*n};
}

bool session_is_for(int n, const Caller &caller)
{
    if (caller.local && caller.trusted)
        return true;
    const auto found = logins.find(n);
    if (found == logins.end())
        return caller.trusted;
    return std::ranges::any_of(found->second.origins, [&](const Origin &origin) {
        return origin.source == caller.source || (origin.local && caller.trusted);
    });
}

std::shared_ptr<SessionUse> session_use(int n)
{
    const auto found = logins.find(n);
    return found == logins.end() ? nullptr : found->second.use;
}

void session_end_idle(SessionUse::Time now)
{
    if (session_idle.count() == 0 || now - looked_for_idle_ones < std::chrono::seconds(1))
        return;
    looked_for_idle_ones = now;
    std::vector<int> idle;
    for (const auto &[n, login] : logins) {
        if (now - login.use->last() >= session_idle)
            idle.push_back(n);
    }
    for (const int n : idle)
        end_session(n);
    if (!idle.empty())
        write_list();
}

int session_logout(int n)
{
    if (n == 0)
        return 0;
    if (!session_get_hdf(n))
        return -1;
    end_session(n);
    write_list();
    return 0;
}

int session_get(int n, SessionFacts &facts)
{
    const Node session = session_get_hdf(n);
    if (!session) {
        facts = {};
        return 1;
    }
    const auto text = [&](std::string_view field) {
        const std::optional<std::string_view> value = session.get(field);
        return value ? std::optional<std::string>(*value) : std::nullopt;
    };
    facts.user = text("user");
    facts.group = text("group");
    if (const std::optional<std::string> perm = text("perm"))
        std::sscanf(perm->c_str(), "%x", &facts.perm);
    return 0;
}

Node session_get_hdf(int n)
{
    return sessionDB.find(session_name(n));
}

Node session_seen_by(unsigned rights, int n)
{
    const Node session = session_get_hdf(n);
    return n == 0 || is_within(rights, c_hex16(session.get_or("perm", ""))) ? session : Node();
}

void session_follow_users()
{
    bool ended = false;
    for (const int n : session_numbers()) {
        const std::string user = session_get_user(n).value_or("");
        if (n == 0)
            continue;
        if (user_get_perm(user) == 0) {
            end_session(n);
            ended = true;
        } else {
            follow_user(n, user);
        }
    }
    if (ended)
        write_list();
}

std::optional<std::string> session_get_user(int n)
{
    SessionFacts facts;
    session_get(n, facts);
    return facts.user;
}

int session_list(unsigned rights, std::FILE *out)
{
    session_end_idle();
    Tree shown = Tree::make();
    for (const int n : session_numbers()) {
        if (const Node session = session_seen_by(rights, n))
            shown.root().merge(session_name(n), session);
    }
    reply_text(out, hdf_text(shown.root()));
    return 0;
}

} // namespace qvcd
