#include <zem/Platform/Private/SecretSession.h>

#include <iterator>

namespace zem::platform {

namespace {

constexpr const char* accountAttribute = "account";
constexpr const char* contentType = "application/octet-stream";
constexpr const char* turnName = "com.quorvane.ZEM.KeychainAdd";

struct Free {
    void operator()(char* text) const { g_free(text); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
    void operator()(SecretValue* value) const { secret_value_unref(value); }
    void operator()(GSource* source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

/// The place where GLib leaves an error.
class Failing {
  public:
    Failing() = default;
    ~Failing() { g_clear_error(&error); }
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;

    GError** out() { return &error; }
    bool isCancelled() const { return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED); }

    /// The failure of `what`, with the error's text behind it.
    std::unexpected<SecretFailure> because(const std::string& what) {
        if (error == nullptr) {
            return std::unexpected(SecretFailure{errSecNotAvailable, what});
        }
        const KeychainStatus code = status();
        g_dbus_error_strip_remote_error(error);
        return std::unexpected(SecretFailure{code, what + ": " + error->message});
    }

  private:
    KeychainStatus status() const {
        if (g_error_matches(error, SECRET_ERROR, SECRET_ERROR_IS_LOCKED)) {
            return errSecInteractionNotAllowed;
        }
        if (g_error_matches(error, SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT)) {
            return errSecItemNotFound;
        }
        if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) ||
            g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_AUTH_FAILED)) {
            return errSecAuthFailed;
        }
        return errSecNotAvailable;
    }

    GError* error = nullptr;
};

/// The end of a call that may meet a prompt. libsecret's blocking forms run those in a main context
/// of their own, which they drop before GLib has given back all that belongs to the prompt.
class Completion {
  public:
    explicit Completion(GMainContext* own)
        : context(own) {}

    static void arrive(GObject*, GAsyncResult* result, gpointer completion) {
        static_cast<Completion*>(completion)->result.reset(G_ASYNC_RESULT(g_object_ref(result)));
    }

    GAsyncResult* wait() {
        while (!result) {
            g_main_context_iteration(context, TRUE);
        }
        return result.get();
    }

  private:
    GMainContext* context;
    Object<GAsyncResult> result;
};

const SecretSchema* schema() {
    static const SecretSchema* made = [] {
        auto* fresh = new SecretSchema{};
        fresh->name = "com.quorvane.ZEM.GenericPassword";
        fresh->flags = SECRET_SCHEMA_NONE;
        fresh->attributes[0] = {accountAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING};
        return fresh;
    }();
    return made;
}

Owned<GHashTable> attributesOf(const std::string& account) {
    return Owned<GHashTable>(
        secret_attributes_build(schema(), accountAttribute, account.c_str(), nullptr));
}

// A service asks for a prompt where it wants the user's consent. Nobody may be there to give it,
// and a database that is being opened does not wait for people: every prompt counts as a locked
// item.

GError* refusedPrompt() {
    return g_error_new_literal(SECRET_ERROR, SECRET_ERROR_IS_LOCKED,
                               "the service wants to ask the user");
}

GVariant* refusePrompt(SecretService*, SecretPrompt*, GCancellable*, const GVariantType*,
                       GError** error) {
    g_propagate_error(error, refusedPrompt());
    return nullptr;
}

void refusePromptLater(SecretService* service, SecretPrompt*, const GVariantType*, GCancellable*,
                       GAsyncReadyCallback callback, gpointer data) {
    const Object<GTask> task(g_task_new(service, nullptr, callback, data));
    g_task_return_error(task.get(), refusedPrompt());
}

GVariant* finishRefusedPrompt(SecretService*, GAsyncResult* result, GError** error) {
    return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(result), error));
}

// libsecret's own constructor asks for GLib's shared connection, whatever connection it is given.
GObject* constructOnGivenConnection(GType type, guint count, GObjectConstructParam* properties) {
    GObject* const service = G_OBJECT_CLASS(g_type_class_peek(SECRET_TYPE_SERVICE))
                                 ->constructor(type, count, properties);
    g_object_set(service, "g-bus-type", G_BUS_TYPE_NONE, nullptr);
    return service;
}

void initServiceClass(gpointer type, gpointer) {
    G_OBJECT_CLASS(type)->constructor = constructOnGivenConnection;
    auto* methods = static_cast<SecretServiceClass*>(type);
    methods->prompt_sync = refusePrompt;
    methods->prompt_async = refusePromptLater;
    methods->prompt_finish = finishRefusedPrompt;
}

GType serviceType() {
    static const GType type = g_type_register_static_simple(
        SECRET_TYPE_SERVICE, "ZemSecretService", sizeof(SecretServiceClass), initServiceClass,
        sizeof(SecretService), nullptr, G_TYPE_FLAG_NONE);
    return type;
}

} // namespace

void SecretSession::Context::operator()(GMainContext* dropped) const {
    g_main_context_pop_thread_default(dropped);
    g_main_context_unref(dropped);
}

SecretSession::SecretSession(GCancellable* given)
    : cancellable(given)
    , context(g_main_context_new()) {
    g_main_context_push_thread_default(context.get());
}

SecretSession::~SecretSession() {
    collection.reset();
    service.reset();
    if (bus) { // closing gives back the turn
        g_dbus_connection_close_sync(bus.get(), cancellable, nullptr);
    }
    // GLib frees such objects from the main context.
    while (context && g_main_context_iteration(context.get(), FALSE) != FALSE) {
    }
}

SecretResult<SecretSession> SecretSession::open(GCancellable* cancellable) {
    SecretSession session(cancellable);
    if (const SecretResult<void> connected = session.connect(); !connected) {
        return std::unexpected(connected.error());
    }
    if (const SecretResult<void> found = session.findCollection(); !found) {
        return std::unexpected(found.error());
    }
    return session;
}

SecretResult<void> SecretSession::connect() {
    Failing error;
    const Owned<char> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, error.out()));
    if (!address) {
        return error.because("there is no session bus");
    }
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus.reset(g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, cancellable,
                                                     error.out()));
    if (!bus) {
        return error.because("the session bus cannot be reached");
    }
    return {};
}

SecretResult<void> SecretSession::findCollection() {
    Failing error;
    service.reset(SECRET_SERVICE(g_initable_new(serviceType(), cancellable, error.out(),
                                                "g-connection", bus.get(), nullptr)));
    if (!service) {
        return error.because("no Secret Service answers on the session bus");
    }
    collection.reset(secret_collection_for_alias_sync(service.get(), SECRET_COLLECTION_DEFAULT,
                                                      SECRET_COLLECTION_NONE, cancellable,
                                                      error.out()));
    if (!collection) {
        return error.because(*error.out() != nullptr
                                 ? "no Secret Service answers on the session bus"
                                 : "the Secret Service has no default collection");
    }
    if (secret_collection_get_locked(collection.get())) {
        return std::unexpected(SecretFailure{
            errSecInteractionNotAllowed, "the default collection of the Secret Service is locked"});
    }
    return {};
}

SecretResult<void> SecretSession::takeTurn() {
    bool mine = false;
    const auto acquired = [](GDBusConnection*, const char*, const char*, const char*, const char*,
                             GVariant*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    const guint subscription = g_dbus_connection_signal_subscribe(
        bus.get(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameAcquired",
        "/org/freedesktop/DBus", turnName, G_DBUS_SIGNAL_FLAGS_NONE, acquired, &mine, nullptr);
    const Owned<GSource> wakeUp(g_cancellable_source_new(cancellable));
    g_source_set_callback(wakeUp.get(),
                          G_SOURCE_FUNC(+[](GCancellable*, gpointer) -> gboolean { return TRUE; }),
                          nullptr, nullptr);
    g_source_attach(wakeUp.get(), context.get());

    Failing error;
    const Owned<GVariant> answer(g_dbus_connection_call_sync(
        bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", turnName, 0U), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, cancellable, error.out()));
    if (answer) {
        guint32 code = 0;
        g_variant_get(answer.get(), "(u)", &code);
        constexpr guint32 inQueue = 2;
        mine = mine || code != inQueue;
        while (!mine && !g_cancellable_is_cancelled(cancellable)) {
            g_main_context_iteration(context.get(), TRUE);
        }
    }
    g_dbus_connection_signal_unsubscribe(bus.get(), subscription);
    if (error.isCancelled() || g_cancellable_is_cancelled(cancellable)) {
        return error.because("another process is adding an item");
    }
    return {};
}

SecretResult<SecretSession::Items> SecretSession::find(const std::string& account) {
    Failing error;
    const Owned<GHashTable> attributes = attributesOf(account);
    GList* const found = secret_collection_search_sync(collection.get(), schema(), attributes.get(),
                                                       SECRET_SEARCH_ALL, cancellable, error.out());
    if (*error.out() != nullptr) {
        return error.because("the items cannot be searched");
    }
    Items items;
    for (GList* each = found; each != nullptr; each = each->next) {
        items.emplace_back(SECRET_ITEM(each->data));
    }
    g_list_free(found);
    return items;
}

SecretResult<SecretBytes> SecretSession::read(SecretItem& item) {
    Failing error;
    if (!secret_item_load_secret_sync(&item, cancellable, error.out())) {
        return error.because("the item cannot be read");
    }
    const Owned<SecretValue> value(secret_item_get_secret(&item));
    if (!value) {
        return error.because("the item cannot be read");
    }
    gsize length = 0;
    const char* bytes = secret_value_get(value.get(), &length);
    return SecretBytes(BytesView(reinterpret_cast<const std::uint8_t*>(bytes), length));
}

SecretResult<void> SecretSession::create(const std::string& account, const SecretBytes& data) {
    Failing error;
    const Owned<GHashTable> attributes = attributesOf(account);
    const Owned<SecretValue> value(secret_value_new(reinterpret_cast<const char*>(data.data()),
                                                    static_cast<gssize>(data.size()), contentType));
    Completion created(context.get());
    secret_item_create(collection.get(), schema(), attributes.get(), account.c_str(), value.get(),
                       SECRET_ITEM_CREATE_NONE, cancellable, Completion::arrive, &created);
    const Object<SecretItem> item(secret_item_create_finish(created.wait(), error.out()));
    if (!item) {
        return error.because("the item cannot be added");
    }
    return {};
}

SecretResult<void> SecretSession::remove(SecretItem& item) {
    Failing error;
    Completion deleted(context.get());
    secret_item_delete(&item, cancellable, Completion::arrive, &deleted);
    if (!secret_item_delete_finish(&item, deleted.wait(), error.out())) {
        return error.because("the item cannot be deleted");
    }
    return {};
}

} // namespace zem::platform
