#pragma once

// Session buses and Secret Services of a test's own, so that a machine without a session passes and
// a user's own keyring is never touched.

#include <Support/TemporaryFolder.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

/// Sets an environment variable of this process, and puts back what it was.
class EnvironmentVariable {
  public:
    EnvironmentVariable(std::string name, const std::string& value);
    ~EnvironmentVariable();
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

  private:
    std::string name;
    std::string previous;
    bool wasSet;
};

/// A program that ends with the object, or with this process.
class ChildProgram {
  public:
    /// `input` is all that it reads from standard input. Throws when it cannot be started.
    ChildProgram(std::vector<std::string> arguments, std::vector<std::string> environment,
                 const std::string& input);
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    /// The first line that it writes to standard output.
    std::string firstLine();

  private:
    pid_t pid = -1;
    int output = -1;
};

/// A session bus that starts no services. While it lives it is this process's.
class SessionBus {
  public:
    /// `rules` are further rules of the bus's policy, after those that allow everything.
    explicit SessionBus(const std::string& rules = "");
    const std::string& address() const { return addressText; }

  private:
    TemporaryFolder folder;
    std::unique_ptr<ChildProgram> daemon;
    std::string addressText;
    std::unique_ptr<EnvironmentVariable> variable;
};

/// A real keyring daemon on a bus, in a home folder of its own, with an unlocked default
/// collection.
class SecretService {
  public:
    explicit SecretService(const SessionBus& bus);
    ~SecretService();

    /// Locks and unlocks the default collection; nobody is asked.
    void lock();
    void unlock();
    /// Deletes the default collection with all that is in it.
    void deleteCollection();

    /// How many items have this account, locked ones too.
    std::size_t itemCount(const std::string& account);
    /// Adds an item of this account that stands beside any other.
    void addAnotherItem(const std::string& account, const std::string& secret);

    struct Item {
        std::string label;
        std::string secret;
        std::vector<std::pair<std::string, std::string>> attributes;
        bool operator==(const Item&) const = default;
    };
    /// The one item of this account.
    Item item(const std::string& account);

  private:
    struct Connection;
    TemporaryFolder home;
    std::unique_ptr<Connection> connection;
    std::unique_ptr<ChildProgram> daemon;
};

/// Owns the Secret Service's name on a bus and misbehaves.
class FakeSecretService {
  public:
    enum class Answer {
        none,   ///< never answers anything
        denial, ///< answers everything with an access error
        prompt, ///< an unlocked collection with an item of the account "present"; wants to ask the
                ///< user before it adds or deletes
    };
    FakeSecretService(const SessionBus& bus, Answer answer);
    ~FakeSecretService();

    /// The members that were called, in order; "CreateItem" with the secret's content type and
    /// whether it was to stand "beside" others or was "replacing" them.
    std::vector<std::string> calls() const;

  private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace test
