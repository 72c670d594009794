#pragma once

// A key store in memory.

#include <zem/SqliteStore/KeyHandler.h>

#include <Support/Wait.h>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace test {

/// Keeps items in memory and records what is asked of it; can be told to keep nothing.
class MemoryKeyStore final : public zem::KeyStoring {
  public:
    std::optional<zem::platform::SecretBytes> storedItem(const std::string& label) override {
        transcript.add("storedItem " + label);
        const auto found = items.find(label);
        return found == items.end() ? std::nullopt : std::optional(found->second.copy());
    }
    bool store(const zem::platform::SecretBytes& item, const std::string& label) override {
        transcript.add("store " + std::to_string(item.size()) + " bytes " + label);
        if (meanwhile) {
            meanwhile();
        }
        return keeps && items.try_emplace(label, item.copy()).second;
    }
    void removeItem(const std::string& label) override {
        transcript.add("removeItem " + label);
        items.erase(label);
    }

    bool keeps = true;
    std::function<void()> meanwhile; ///< what another process does just before an item is kept
    std::map<std::string, zem::platform::SecretBytes> items;
    Transcript transcript;
};

} // namespace test
