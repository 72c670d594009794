#pragma once

// A key store for machines without a keychain: a folder that nobody else can enter, with a file a
// label.

#include <zem/SqliteStore/KeyHandler.h>

#include <expected>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace zem {

/// Its text names the path, the expected and the found. It never holds a secret.
class FileKeyStoreError final : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The folder has mode 0700 and the files 0600; where either belongs to another user, or gives
/// others any access at all, nothing is read and nothing is written. Modes are never repaired: a
/// secret that others may have read is for its owner to judge. A file is there whole or not at all
/// and is never replaced, whichever process writes it. The secrets stand in the files as they are:
/// whoever can read them can read the database.
class FileKeyStore final : public KeyStoring {
  public:
    /// Makes the folder where there is none, with the folders above it, and checks it and every
    /// file in it. The error is a text for people.
    static std::expected<std::shared_ptr<FileKeyStore>, std::string>
    create(const std::filesystem::path& folder);

    /// Absent only if there is no file: throws FileKeyStoreError when there is one that cannot be
    /// read or may not be trusted, so that no new key is made for a database whose own key is
    /// out of reach.
    std::optional<platform::SecretBytes> storedItem(const std::string& label) override;

    /// False when there is an item of that label, and when the file cannot be written.
    bool store(const platform::SecretBytes& item, const std::string& label) override;

    /// Throws FileKeyStoreError when the file cannot be deleted.
    void removeItem(const std::string& label) override;

  private:
    explicit FileKeyStore(std::filesystem::path folder);

    const std::filesystem::path folder;
};

} // namespace zem
