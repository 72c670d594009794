#include <gio/gio.h>

#include <Support/SecretService.h>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace test {

namespace {

constexpr const char* serviceName = "org.freedesktop.secrets";
constexpr const char* servicePath = "/org/freedesktop/secrets";
constexpr const char* collectionPath = "/org/freedesktop/secrets/collection/login";
constexpr const char* password = "correct horse";

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

void require(int failure, const std::string& what) {
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), what);
    }
}

struct Unref {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(gpointer object) const { g_object_unref(object); }
};
using Variant = std::unique_ptr<GVariant, Unref>;
template <class T>
using Object = std::unique_ptr<T, Unref>;

Object<GDBusConnection> connectTo(const SessionBus& bus) {
    GError* error = nullptr;
    Object<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        bus.address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error));
    if (!connection) {
        throw std::runtime_error(std::string("the private bus: ") + error->message);
    }
    return connection;
}

Variant callOn(GDBusConnection* connection, const char* name, const char* path,
               const char* interface, const char* member, GVariant* arguments) {
    GError* error = nullptr;
    Variant answer(g_dbus_connection_call_sync(connection, name, path, interface, member, arguments,
                                               nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                                               &error));
    if (!answer) {
        throw std::runtime_error(std::string(member) + ": " + error->message);
    }
    return answer;
}

/// The filter may still be running on GLib's thread when it is removed, so it owns its data.
template <class T>
guint addFilter(GDBusConnection* connection, GDBusMessageFilterFunction filter,
                const std::shared_ptr<T>& data) {
    return g_dbus_connection_add_filter(
        connection, filter, new std::shared_ptr<T>(data),
        [](gpointer owned) { delete static_cast<std::shared_ptr<T>*>(owned); });
}

GVariant* bytes(const std::string& text) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1);
}

} // namespace

EnvironmentVariable::EnvironmentVariable(std::string variable, const std::string& value)
    : name(std::move(variable)) {
    const char* before = std::getenv(name.c_str());
    wasSet = before != nullptr;
    previous = wasSet ? before : "";
    setenv(name.c_str(), value.c_str(), 1);
}

EnvironmentVariable::~EnvironmentVariable() {
    if (wasSet) {
        setenv(name.c_str(), previous.c_str(), 1);
    } else {
        unsetenv(name.c_str());
    }
}

ChildProgram::ChildProgram(std::vector<std::string> arguments, std::vector<std::string> environment,
                           const std::string& input) {
    const std::array<std::string, 3> guard{"setpriv", "--pdeathsig", "KILL"};
    const std::string name = arguments.front();
    arguments.insert(arguments.begin(), guard.begin(), guard.end());
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    require(pipe2(in.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    require(pipe2(out.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int failure = posix_spawnp(&pid, arguments.front().c_str(), &files, nullptr,
                                     pointers(arguments).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&files);
    close(in[0]);
    close(out[1]);
    output = out[0];
    const bool written =
        write(in[1], input.data(), input.size()) == static_cast<ssize_t>(input.size());
    close(in[1]);
    require(failure, name);
    if (!written) {
        throw std::runtime_error(name + " does not read its input");
    }
}

ChildProgram::~ChildProgram() {
    close(output);
    kill(pid, SIGKILL);
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::string ChildProgram::firstLine() {
    std::string line;
    char next = 0;
    while (read(output, &next, 1) == 1 && next != '\n') {
        line += next;
    }
    if (line.empty()) {
        throw std::runtime_error("a program that a test needs ended without saying anything");
    }
    return line;
}

SessionBus::SessionBus(const std::string& rules) {
    const std::filesystem::path configuration = folder / "bus.conf";
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>unix:path="
                                 << (folder / "bus").string()
                                 << "</listen><auth>EXTERNAL</auth><policy context='default'>"
                                    "<allow send_destination='*' eavesdrop='true'/><allow own='*'/>"
                                    "<allow eavesdrop='true'/>"
                                 << rules << "</policy></busconfig>";
    daemon = std::make_unique<ChildProgram>(
        std::vector<std::string>{"dbus-daemon", "--config-file=" + configuration.string(),
                                 "--nofork", "--print-address=1"},
        std::vector<std::string>{"PATH=" + std::string(std::getenv("PATH"))}, "");
    addressText = daemon->firstLine();
    variable = std::make_unique<EnvironmentVariable>("DBUS_SESSION_BUS_ADDRESS", addressText);
}

struct SecretService::Connection {
    explicit Connection(const SessionBus& bus)
        : connection(connectTo(bus)) {}
    ~Connection() { g_dbus_connection_close_sync(connection.get(), nullptr, nullptr); }

    Variant call(const char* path, const char* interface, const char* member, GVariant* arguments) {
        return callOn(connection.get(), serviceName, path, interface, member, arguments);
    }

    /// A session that carries secrets as they are.
    std::string session() {
        const Variant answer = call(servicePath, "org.freedesktop.Secret.Service", "OpenSession",
                                    g_variant_new("(sv)", "plain", g_variant_new_string("")));
        const char* path = nullptr;
        g_variant_get(answer.get(), "(v&o)", nullptr, &path);
        return path;
    }

    std::vector<std::string> items(const std::string& account) {
        GVariantBuilder attributes;
        g_variant_builder_init(&attributes, G_VARIANT_TYPE("a{ss}"));
        g_variant_builder_add(&attributes, "{ss}", "account", account.c_str());
        const Variant answer = call(servicePath, "org.freedesktop.Secret.Service", "SearchItems",
                                    g_variant_new("(a{ss})", &attributes));
        std::vector<std::string> paths;
        for (gsize list = 0; list < 2; ++list) { // the unlocked ones and the locked ones
            const Variant found(g_variant_get_child_value(answer.get(), list));
            for (gsize index = 0; index < g_variant_n_children(found.get()); ++index) {
                const char* path = nullptr;
                g_variant_get_child(found.get(), index, "&o", &path);
                paths.emplace_back(path);
            }
        }
        return paths;
    }

    Variant property(const std::string& path, const char* name) {
        const Variant answer = call(path.c_str(), "org.freedesktop.DBus.Properties", "Get",
                                    g_variant_new("(ss)", "org.freedesktop.Secret.Item", name));
        const Variant boxed(g_variant_get_child_value(answer.get(), 0));
        return Variant(g_variant_get_variant(boxed.get()));
    }

    Object<GDBusConnection> connection;
};

SecretService::SecretService(const SessionBus& bus)
    : connection(std::make_unique<Connection>(bus)) {
    // Heard on GLib's own thread, so that nobody need run a main loop here.
    const auto heard = [](GDBusConnection*, GDBusMessage* message, gboolean incoming,
                          gpointer event) {
        if (incoming != FALSE &&
            g_strcmp0(g_dbus_message_get_member(message), "NameOwnerChanged") == 0 &&
            g_strcmp0(g_dbus_message_get_arg0(message), serviceName) == 0) {
            (*static_cast<std::shared_ptr<Event>*>(event))->signal();
        }
        return message;
    };
    const auto appeared = std::make_shared<Event>(serviceName);
    GDBusConnection* const own = connection->connection.get();
    const guint filter = addFilter(own, heard, appeared);
    callOn(own, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch",
           g_variant_new("(s)", "type='signal',member='NameOwnerChanged'"));
    const std::string folder = home.path().string();
    daemon = std::make_unique<ChildProgram>(
        std::vector<std::string>{"gnome-keyring-daemon", "--foreground", "--unlock",
                                 "--components=secrets"},
        std::vector<std::string>{
            "PATH=" + std::string(std::getenv("PATH")), "DBUS_SESSION_BUS_ADDRESS=" + bus.address(),
            "HOME=" + folder, "XDG_DATA_HOME=" + folder + "/data",
            "XDG_CONFIG_HOME=" + folder + "/config", "XDG_CACHE_HOME=" + folder + "/cache",
            "XDG_RUNTIME_DIR=" + folder},
        password);
    appeared->wait();
    g_dbus_connection_remove_filter(own, filter);
}

SecretService::~SecretService() = default;

void SecretService::lock() {
    const char* path = collectionPath;
    connection->call(servicePath, "org.freedesktop.Secret.Service", "Lock",
                     g_variant_new("(@ao)", g_variant_new_objv(&path, 1)));
}

void SecretService::unlock() {
    connection->call(servicePath, "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
                     "UnlockWithMasterPassword",
                     g_variant_new("(o(o@ay@ays))", collectionPath, connection->session().c_str(),
                                   bytes(""), bytes(password), "text/plain"));
}

void SecretService::deleteCollection() {
    connection->call(collectionPath, "org.freedesktop.Secret.Collection", "Delete", nullptr);
}

std::size_t SecretService::itemCount(const std::string& account) {
    return connection->items(account).size();
}

void SecretService::addAnotherItem(const std::string& account, const std::string& secret) {
    GVariantBuilder attributes;
    g_variant_builder_init(&attributes, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&attributes, "{ss}", "account", account.c_str());
    g_variant_builder_add(&attributes, "{ss}", "xdg:schema", "com.quorvane.ZEM.GenericPassword");
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                          g_variant_builder_end(&attributes));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string(account.c_str()));
    connection->call(collectionPath, "org.freedesktop.Secret.Collection", "CreateItem",
                     g_variant_new("(a{sv}(o@ay@ays)b)", &properties, connection->session().c_str(),
                                   bytes(""), bytes(secret), "application/octet-stream", FALSE));
}

SecretService::Item SecretService::item(const std::string& account) {
    const std::vector<std::string> paths = connection->items(account);
    if (paths.size() != 1) {
        throw std::runtime_error("not one item but " + std::to_string(paths.size()));
    }
    Item item;
    item.label = g_variant_get_string(connection->property(paths[0], "Label").get(), nullptr);
    const Variant attributes = connection->property(paths[0], "Attributes");
    GVariantIter iterator;
    g_variant_iter_init(&iterator, attributes.get());
    const char* key = nullptr;
    const char* value = nullptr;
    while (g_variant_iter_next(&iterator, "{&s&s}", &key, &value) != FALSE) {
        item.attributes.emplace_back(key, value);
    }
    std::sort(item.attributes.begin(), item.attributes.end());
    const Variant answer =
        connection->call(paths[0].c_str(), "org.freedesktop.Secret.Item", "GetSecret",
                         g_variant_new("(o)", connection->session().c_str()));
    GVariant* secret = nullptr;
    g_variant_get(answer.get(), "((o@ay@ays))", nullptr, nullptr, &secret, nullptr);
    gsize length = 0;
    const void* data = g_variant_get_fixed_array(secret, &length, 1);
    item.secret.assign(static_cast<const char*>(data), length);
    g_variant_unref(secret);
    return item;
}

namespace {

const char* const properties =
    "({'Locked': <false>, 'Items': <@ao []>, 'Collections': <@ao []>, 'Label': <'x'>,"
    " 'Attributes': <@a{ss} {}>, 'Created': <@t 0>, 'Modified': <@t 0>},)";

/// The answers of a service that wants to ask the user before any change.
GVariant* promptingAnswer(const std::string& member) {
    static const std::vector<std::pair<std::string, std::string>> answers{
        {"GetAll", properties},
        {"ReadAlias", "(@o '/collection',)"},
        {"OpenSession", "(<''>, @o '/session')"},
        {"CreateItem", "(@o '/', @o '/prompt')"},
        {"Delete", "(@o '/prompt',)"},
    };
    for (const auto& [name, text] : answers) {
        if (name == member) {
            return g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr);
        }
    }
    return nullptr;
}

/// Only the account "present" has an item.
GVariant* searchAnswer(GVariant* query) {
    const Variant attributes(g_variant_get_child_value(query, 0));
    const char* account = nullptr;
    const bool found = g_variant_lookup(attributes.get(), "account", "&s", &account) != FALSE &&
                       std::strcmp(account, "present") == 0;
    return g_variant_parse(nullptr, found ? "(@ao ['/collection/1'],)" : "(@ao [],)", nullptr,
                           nullptr, nullptr);
}

/// The member, and of a new item how it is to be kept.
std::string lineOf(GDBusMessage* call) {
    std::string line = g_dbus_message_get_member(call);
    if (line == "CreateItem") {
        const char* contentType = nullptr;
        gboolean replace = FALSE;
        g_variant_get(g_dbus_message_get_body(call), "(@a{sv}(o@ay@ay&s)b)", nullptr, nullptr,
                      nullptr, nullptr, &contentType, &replace);
        line += std::string(" ") + contentType + (replace != FALSE ? " replacing" : " beside");
    }
    return line;
}

} // namespace

struct FakeSecretService::State {
    struct Service {
        Answer answer;
        Transcript transcript;

        GDBusMessage* reply(GDBusMessage* call) const;
    };
    static GDBusMessage* hear(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                              gpointer data);

    Object<GDBusConnection> connection;
    std::shared_ptr<Service> service;
};

GDBusMessage* FakeSecretService::State::Service::reply(GDBusMessage* call) const {
    if (answer == Answer::denial) {
        return g_dbus_message_new_method_error_literal(
            call, "org.freedesktop.DBus.Error.AccessDenied", "not for you");
    }
    const std::string member = g_dbus_message_get_member(call);
    const Variant body(member == "SearchItems" ? searchAnswer(g_dbus_message_get_body(call))
                                               : promptingAnswer(member));
    const bool isEncrypted =
        member == "OpenSession" && g_strcmp0(g_dbus_message_get_arg0(call), "plain") != 0;
    if (!body || isEncrypted) {
        return g_dbus_message_new_method_error_literal(
            call, "org.freedesktop.DBus.Error.NotSupported", "not here");
    }
    GDBusMessage* message = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(message, body.get());
    return message;
}

GDBusMessage* FakeSecretService::State::hear(GDBusConnection* connection, GDBusMessage* message,
                                             gboolean incoming, gpointer data) {
    if (incoming == FALSE ||
        g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return message;
    }
    Service& service = **static_cast<std::shared_ptr<Service>*>(data);
    service.transcript.add(lineOf(message));
    if (service.answer != Answer::none) {
        const Object<GDBusMessage> reply(service.reply(message));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }
    g_object_unref(message);
    return nullptr;
}

FakeSecretService::FakeSecretService(const SessionBus& bus, Answer answer)
    : state(std::make_unique<State>()) {
    state->connection = connectTo(bus);
    state->service = std::make_shared<State::Service>();
    state->service->answer = answer;
    addFilter(state->connection.get(), State::hear, state->service);
    callOn(state->connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
           "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", serviceName, 0U));
}

FakeSecretService::~FakeSecretService() {
    g_dbus_connection_close_sync(state->connection.get(), nullptr, nullptr);
}

std::vector<std::string> FakeSecretService::calls() const {
    return state->service->transcript.lines();
}

} // namespace test
