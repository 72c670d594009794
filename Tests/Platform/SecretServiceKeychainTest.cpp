#include <zem/Platform/Random.h>
#include <zem/Platform/SecretServiceKeychain.h>

#include <gmock/gmock.h>

#include <Support/SecretService.h>
#include <array>
#include <atomic>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace zem::platform;
using namespace std::chrono_literals;
using test::FakeSecretService;
using test::SecretService;
using test::SessionBus;

namespace {

static_assert(secretServiceLimit == 5s);

const std::string label = "com.quorvane.ZEM.SQLiteStoreKey";

KeychainAttributes attributesOf(const std::string& account) {
    KeychainAttributes attributes;
    attributes.push_back({kSecClass, std::string(kSecClassGenericPassword)});
    attributes.push_back({kSecAttrAccount, account});
    attributes.push_back({kSecUseDataProtectionKeychain, true});
    return attributes;
}

Keychain::Match match(Keychain& keychain, const std::string& account) {
    KeychainAttributes query = attributesOf(account);
    query.push_back({kSecReturnData, true});
    return keychain.copyMatching(query);
}

KeychainStatus add(Keychain& keychain, const std::string& account, const SecretBytes& data) {
    KeychainAttributes attributes = attributesOf(account);
    attributes.push_back({kSecAttrAccessible, std::string(kSecAttrAccessibleWhenUnlocked)});
    attributes.push_back({kSecValueData, data.copy()});
    return keychain.add(attributes);
}

KeychainStatus remove(Keychain& keychain, const std::string& account) {
    return keychain.remove(attributesOf(account));
}

SecretBytes secretOf(std::string_view text) {
    return SecretBytes(BytesView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

/// One whose service answers, however busy the machine is.
std::unique_ptr<Keychain> makeKeychain() {
    return makeSecretServiceKeychain(test::waitLimit);
}

std::vector<KeychainStatus> statusesOfEveryCall(Keychain& keychain) {
    return {match(keychain, label).status, add(keychain, label, secretOf("key")),
            remove(keychain, label)};
}

std::vector<KeychainStatus> threeTimes(KeychainStatus status) {
    return {status, status, status};
}

/// Something that listens where a session bus should and never says a word; or greets whoever
/// comes, as a bus does, and then never says another.
class SilentBus {
  public:
    enum class Manner { mute, greeting };

    explicit SilentBus(Manner manner) {
        listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = (folder / "bus").string();
        std::strcpy(address.sun_path, path.c_str());
        EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(sockaddr_un)),
                  0);
        EXPECT_EQ(listen(listener, 16), 0);
        EXPECT_EQ(pipe(stop.data()), 0);
        variable = std::make_unique<test::EnvironmentVariable>("DBUS_SESSION_BUS_ADDRESS",
                                                               "unix:path=" + path);
        if (manner == Manner::greeting) {
            thread = std::thread([this] { greet(); });
        }
    }

    ~SilentBus() {
        close(stop[1]);
        if (thread.joinable()) {
            thread.join();
        }
        close(stop[0]);
        close(listener);
    }

    test::Event greeted{"a client that was greeted"};

  private:
    bool isReadable(int file) const {
        std::array<pollfd, 2> files{pollfd{file, POLLIN, 0}, pollfd{stop[0], POLLIN, 0}};
        poll(files.data(), files.size(), -1);
        return files[1].revents == 0;
    }

    void greet() {
        std::vector<int> clients;
        while (isReadable(listener)) {
            clients.push_back(accept(listener, nullptr, nullptr));
            answerLines(clients.back());
        }
        for (const int client : clients) {
            close(client);
        }
    }

    void answerLines(int client) {
        std::string line;
        char next = 0;
        while (isReadable(client) && read(client, &next, 1) == 1) {
            if (next != '\n') {
                line += next;
                continue;
            }
            if (line.find("BEGIN") != std::string::npos) {
                greeted.signal();
                return;
            }
            std::string answer = "ERROR\r\n";
            if (line.find("AUTH EXTERNAL") != std::string::npos) {
                answer = "OK 0123456789abcdef0123456789abcdef\r\n";
            } else if (line.find("AUTH") != std::string::npos) {
                answer = "REJECTED EXTERNAL\r\n";
            }
            EXPECT_EQ(write(client, answer.data(), answer.size()),
                      static_cast<ssize_t>(answer.size()));
            line.clear();
        }
    }

    test::TemporaryFolder folder;
    std::unique_ptr<test::EnvironmentVariable> variable;
    int listener = -1;
    std::array<int, 2> stop{-1, -1};
    std::thread thread;
};

} // namespace

TEST(SecretServiceKeychain, KeepsReturnsAndDeletesAnItem) {
    const SessionBus bus;
    SecretService service(bus);
    const auto keychain = makeKeychain();
    EXPECT_EQ(match(*keychain, label).status, errSecItemNotFound);
    EXPECT_EQ(remove(*keychain, label), errSecItemNotFound);

    const SecretBytes secret = randomKey(32);
    EXPECT_EQ(add(*keychain, label, secret), errSecSuccess);
    const Keychain::Match found = match(*keychain, label);
    EXPECT_EQ(found.status, errSecSuccess);
    EXPECT_EQ(found.data, secret);

    EXPECT_EQ(remove(*keychain, label), errSecSuccess);
    EXPECT_EQ(match(*keychain, label).status, errSecItemNotFound);
    EXPECT_EQ(service.itemCount(label), 0U);
}

TEST(SecretServiceKeychain, StatusesHaveTheirNumbers) {
    EXPECT_EQ(errSecSuccess, 0);
    EXPECT_EQ(errSecItemNotFound, -25300);
    EXPECT_EQ(errSecDuplicateItem, -25299);
}

TEST(SecretServiceKeychain, ItemStandsInTheServiceAsItsUsersWillSeeIt) {
    const SessionBus bus;
    SecretService service(bus);
    ASSERT_EQ(add(*makeKeychain(), label, secretOf("a secret")), errSecSuccess);
    const SecretService::Item item = service.item(label);
    EXPECT_EQ(item.label, label);
    EXPECT_EQ(item.secret, "a secret");
    EXPECT_EQ(item.attributes,
              (std::vector<std::pair<std::string, std::string>>{
                  {"account", label}, {"xdg:schema", "com.quorvane.ZEM.GenericPassword"}}));
}

TEST(SecretServiceKeychain, KeepsAnyBytes) {
    const SessionBus bus;
    const SecretService service(bus);
    const auto keychain = makeKeychain();
    Bytes every;
    for (int byte = 0; byte < 256; ++byte) {
        every.push_back(static_cast<std::uint8_t>(byte));
    }
    ASSERT_EQ(add(*keychain, "every", SecretBytes(every)), errSecSuccess);
    EXPECT_EQ(match(*keychain, "every").data, SecretBytes(every));
    ASSERT_EQ(add(*keychain, "empty", SecretBytes()), errSecSuccess);
    const Keychain::Match empty = match(*keychain, "empty");
    EXPECT_EQ(empty.status, errSecSuccess);
    EXPECT_TRUE(empty.data.empty());
}

TEST(SecretServiceKeychain, GivesNoDataThatWasNotAskedFor) {
    const SessionBus bus;
    const SecretService service(bus);
    const auto keychain = makeKeychain();
    ASSERT_EQ(add(*keychain, label, secretOf("key")), errSecSuccess);
    const Keychain::Match found = keychain->copyMatching(attributesOf(label));
    EXPECT_EQ(found.status, errSecSuccess);
    EXPECT_TRUE(found.data.empty());
}

TEST(SecretServiceKeychain, AddingDoesNotReplace) {
    const SessionBus bus;
    SecretService service(bus);
    const auto keychain = makeKeychain();
    ASSERT_EQ(add(*keychain, label, secretOf("first")), errSecSuccess);
    EXPECT_EQ(add(*keychain, label, secretOf("second")), errSecDuplicateItem);
    EXPECT_EQ(match(*keychain, label).data, secretOf("first"));
    EXPECT_EQ(service.itemCount(label), 1U);
}

TEST(SecretServiceKeychain, AccountsAreIndependent) {
    const SessionBus bus;
    const SecretService service(bus);
    const auto keychain = makeKeychain();
    ASSERT_EQ(add(*keychain, "one", secretOf("1")), errSecSuccess);
    ASSERT_EQ(add(*keychain, "two", secretOf("2")), errSecSuccess);
    EXPECT_EQ(remove(*keychain, "two"), errSecSuccess);
    EXPECT_EQ(match(*keychain, "one").data, secretOf("1"));
    EXPECT_EQ(match(*keychain, "two").status, errSecItemNotFound);
}

TEST(SecretServiceKeychain, DeletesEveryItemOfTheAccount) {
    const SessionBus bus;
    SecretService service(bus);
    service.addAnotherItem(label, "1");
    service.addAnotherItem(label, "2");
    ASSERT_EQ(service.itemCount(label), 2U);
    EXPECT_EQ(remove(*makeKeychain(), label), errSecSuccess);
    EXPECT_EQ(service.itemCount(label), 0U);
}

TEST(SecretServiceKeychain, ManyAddingAtOnceLeaveOneItem) {
    const SessionBus bus;
    SecretService service(bus);
    std::atomic<int> added = 0;
    std::atomic<int> duplicate = 0;
    {
        std::vector<std::jthread> threads;
        threads.reserve(8);
        for (int count = 0; count < 8; ++count) {
            threads.emplace_back([&] {
                // As if each were a process of its own: a keychain holds no lock on another.
                const auto keychain = makeKeychain();
                const KeychainStatus status = add(*keychain, label, randomKey(32));
                (status == errSecSuccess ? added : duplicate) +=
                    status == errSecSuccess || status == errSecDuplicateItem ? 1 : 100;
            });
        }
    }
    EXPECT_EQ(added, 1);
    EXPECT_EQ(duplicate, 7);
    EXPECT_EQ(service.itemCount(label), 1U);
}

TEST(SecretServiceKeychain, AddsWhereTheBusLetsNobodyTakeTurns) {
    const SessionBus bus("<deny own='com.quorvane.ZEM.KeychainAdd'/>");
    SecretService service(bus);
    EXPECT_EQ(add(*makeKeychain(), label, secretOf("key")), errSecSuccess);
    EXPECT_EQ(service.itemCount(label), 1U);
}

TEST(SecretServiceKeychain, LockedGivesNothingAndTakesNothing) {
    const SessionBus bus;
    SecretService service(bus);
    const auto keychain = makeKeychain();
    ASSERT_EQ(add(*keychain, label, secretOf("first")), errSecSuccess);
    service.lock();
    EXPECT_EQ(statusesOfEveryCall(*keychain), threeTimes(errSecInteractionNotAllowed));
    EXPECT_EQ(add(*keychain, "another", secretOf("second")), errSecInteractionNotAllowed);

    service.unlock();
    EXPECT_EQ(match(*keychain, label).data, secretOf("first"));
    EXPECT_EQ(service.itemCount(label), 1U);
    EXPECT_EQ(service.itemCount("another"), 0U);
    EXPECT_EQ(add(*keychain, "another", secretOf("second")), errSecSuccess);
}

TEST(SecretServiceKeychain, NeverPrompts) {
    const SessionBus bus;
    const FakeSecretService service(bus, FakeSecretService::Answer::prompt);
    const auto keychain = makeKeychain();
    EXPECT_EQ(add(*keychain, "absent", secretOf("key")), errSecInteractionNotAllowed);
    EXPECT_THAT(service.calls(), testing::Contains("CreateItem application/octet-stream beside"));
    EXPECT_EQ(remove(*keychain, "present"), errSecInteractionNotAllowed);
    EXPECT_THAT(service.calls(), testing::Contains("Delete"));
    EXPECT_THAT(service.calls(), testing::Not(testing::Contains("Prompt")));
}

TEST(SecretServiceKeychain, WithoutADefaultCollectionIsNotAvailable) {
    const SessionBus bus;
    SecretService service(bus);
    service.deleteCollection();
    EXPECT_EQ(statusesOfEveryCall(*makeKeychain()), threeTimes(errSecNotAvailable));
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_FALSE(availability.available);
    EXPECT_EQ(availability.reason, "the Secret Service has no default collection");
}

TEST(SecretServiceKeychain, DeniedByTheServiceIsAFailureOfAuthorisation) {
    const SessionBus bus;
    const FakeSecretService service(bus, FakeSecretService::Answer::denial);
    EXPECT_EQ(statusesOfEveryCall(*makeKeychain()), threeTimes(errSecAuthFailed));
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_FALSE(availability.available);
    EXPECT_EQ(availability.reason, "no Secret Service answers on the session bus: not for you");
}

TEST(SecretServiceKeychain, DeniedByTheBusIsAFailureOfAuthorisation) {
    const SessionBus bus("<deny send_destination='org.freedesktop.secrets'/>");
    const FakeSecretService service(bus, FakeSecretService::Answer::prompt);
    EXPECT_EQ(statusesOfEveryCall(*makeKeychain()), threeTimes(errSecAuthFailed));
    EXPECT_EQ(service.calls(), std::vector<std::string>());
}

TEST(SecretServiceKeychain, WithoutAServiceIsNotAvailable) {
    const SessionBus bus;
    EXPECT_EQ(statusesOfEveryCall(*makeKeychain()), threeTimes(errSecNotAvailable));
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_FALSE(availability.available);
    EXPECT_THAT(availability.reason,
                testing::StartsWith("no Secret Service answers on the session bus: "));
}

TEST(SecretServiceKeychain, WithoutABusIsNotAvailable) {
    const test::TemporaryFolder folder;
    const test::EnvironmentVariable variable("DBUS_SESSION_BUS_ADDRESS",
                                             "unix:path=" + (folder / "nothing").string());
    EXPECT_EQ(statusesOfEveryCall(*makeKeychain()), threeTimes(errSecNotAvailable));
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_FALSE(availability.available);
    EXPECT_THAT(availability.reason, testing::StartsWith("the session bus cannot be reached: "));
}

TEST(SecretServiceKeychain, HangingServiceEndsAtTheLimit) {
    const SessionBus bus;
    const FakeSecretService service(bus, FakeSecretService::Answer::none);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(match(*makeSecretServiceKeychain(200ms), label).status, errSecNotAvailable);
    EXPECT_EQ(add(*makeSecretServiceKeychain(200ms), label, secretOf("key")), errSecNotAvailable);
    EXPECT_EQ(remove(*makeSecretServiceKeychain(200ms), label), errSecNotAvailable);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, 600ms);
    EXPECT_LT(elapsed, 20s); // below what the bus library would wait for one answer
    EXPECT_EQ(secretServiceAvailability(200ms).reason,
              "the Secret Service did not answer within 200ms");
}

TEST(SecretServiceKeychain, HangingServiceIsWaitedForOnceAndForFiveSeconds) {
    const SessionBus bus;
    const FakeSecretService service(bus, FakeSecretService::Answer::none);
    const auto keychain = makeSecretServiceKeychain();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(match(*keychain, label).status, errSecNotAvailable);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, 5s);
    EXPECT_LT(elapsed, 20s);
    const std::vector<std::string> calls = service.calls();
    EXPECT_NE(calls, std::vector<std::string>());
    EXPECT_EQ(statusesOfEveryCall(*keychain), threeTimes(errSecNotAvailable));
    EXPECT_EQ(service.calls(), calls);
}

TEST(SecretServiceKeychain, ServiceThatHungIsAskedAgainLater) {
    const SessionBus bus;
    const auto keychain = makeSecretServiceKeychain(2s);
    {
        const FakeSecretService hanging(bus, FakeSecretService::Answer::none);
        EXPECT_EQ(match(*keychain, label).status, errSecNotAvailable);
    }
    const SecretService service(bus);
    const auto end = std::chrono::steady_clock::now() + test::waitLimit;
    KeychainStatus status = errSecNotAvailable;
    while (status == errSecNotAvailable && std::chrono::steady_clock::now() < end) {
        status = match(*keychain, label).status;
        std::this_thread::yield();
    }
    EXPECT_EQ(status, errSecItemNotFound);
}

TEST(SecretServiceKeychain, BusThatSaysNothingEndsAtTheLimit) {
    const SilentBus bus(SilentBus::Manner::mute);
    EXPECT_EQ(match(*makeSecretServiceKeychain(200ms), label).status, errSecNotAvailable);
    EXPECT_FALSE(secretServiceAvailability(200ms).available);
}

TEST(SecretServiceKeychain, BusThatOnlyGreetsEndsAtTheLimit) {
    SilentBus bus(SilentBus::Manner::greeting);
    // Until the limit comes after the greeting.
    test::waitUntil("a client that was greeted", [&] {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(match(*makeSecretServiceKeychain(1s), label).status, errSecNotAvailable);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
        return bus.greeted.signalled() > 0;
    });
}

TEST(SecretServiceKeychain, OutlivesTheBus) {
    const auto keychain = makeKeychain();
    {
        const SessionBus bus;
        const SecretService service(bus);
        ASSERT_EQ(add(*keychain, label, secretOf("key")), errSecSuccess);
    }
    EXPECT_EQ(match(*keychain, label).status, errSecNotAvailable);
    const SessionBus bus;
    const SecretService service(bus);
    EXPECT_EQ(match(*keychain, label).status, errSecItemNotFound);
}

TEST(SecretServiceKeychain, RefusesAttributesThatMakeNoSense) {
    const SessionBus bus;
    const FakeSecretService service(bus, FakeSecretService::Answer::denial);
    const auto keychain = makeKeychain();
    std::vector<KeychainAttributes> lists(5);
    lists[0].push_back({kSecAttrAccount, label}); // no class
    lists[1].push_back({kSecClass, std::string("inet")});
    lists[2].push_back({kSecClass, std::string(kSecClassGenericPassword)}); // no account
    lists[3] = attributesOf(std::string("a\0b", 3));
    lists[4] = attributesOf(label);
    lists[4].push_back({kSecReturnData, std::string("yes")});
    for (const KeychainAttributes& list : lists) {
        EXPECT_EQ(keychain->copyMatching(list).status, errSecParam);
        EXPECT_EQ(keychain->add(list), errSecParam);
        EXPECT_EQ(keychain->remove(list), errSecParam);
    }
    EXPECT_EQ(service.calls(), std::vector<std::string>());
}

TEST(SecretServiceAvailability, SaysYesWhereItemsCanBeKept) {
    const SessionBus bus;
    const SecretService service(bus);
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_TRUE(availability.available);
    EXPECT_EQ(availability.reason, "");
}

TEST(SecretServiceAvailability, SaysThatTheCollectionIsLocked) {
    const SessionBus bus;
    SecretService service(bus);
    service.lock();
    const SecretServiceAvailability availability = secretServiceAvailability(test::waitLimit);
    EXPECT_FALSE(availability.available);
    EXPECT_EQ(availability.reason, "the default collection of the Secret Service is locked");
}
