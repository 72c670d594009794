#pragma once

// The host as people use it: a program that is given a bundle.

#include <Support/Process.h>
#include <Support/TemporaryFolder.h>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// A folder in which the host is run.
class Host {
  public:
    using Words = std::vector<std::string>;

    const TemporaryFolder& folder() const { return ownFolder; }

    /// Throws when it cannot be written whole: the host would run something else.
    void write(const std::string& name, const std::string& text) const {
        std::ofstream file(ownFolder / name, std::ios::binary);
        file << text;
        file.close();
        if (!file) {
            throw std::runtime_error("cannot write " + (ownFolder / name).string());
        }
    }

    std::string read(const std::string& name) const {
        std::ifstream file(ownFolder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// `zem` with these words.
    Process start(Words words) const {
        words.insert(words.begin(), ZEM_HOST);
        return Process(std::move(words), {ownFolder.path(), environment});
    }

    /// `zem run bundle.js --memory` with further words, the bundle being `script`.
    Process startScript(const std::string& script, Words words = {}) const {
        write("bundle.js", script);
        words.insert(words.begin(), {"run", "bundle.js", "--memory"});
        return start(std::move(words));
    }

    /// `zem` with these words, and a standard input to write to.
    Process startWithInput(Words words) const {
        words.insert(words.begin(), ZEM_HOST);
        return Process(std::move(words), {ownFolder.path(), environment, true});
    }

    /// `zem run bundle.js --memory --commands commands.txt`.
    Process startCommands(const std::string& script, const std::string& commands,
                          Words words = {}) const {
        write("commands.txt", commands);
        words.insert(words.begin(), {"--commands", "commands.txt"});
        return startScript(script, std::move(words));
    }
    Process::Result runCommands(const std::string& script, const std::string& commands,
                                Words words = {}) const {
        return startCommands(script, commands, std::move(words)).wait();
    }

    Process::Result run(Words words) const { return start(std::move(words)).wait(); }
    Process::Result runScript(const std::string& script, Words words = {}) const {
        return startScript(script, std::move(words)).wait();
    }

    std::map<std::string, std::string> environment;

  private:
    TemporaryFolder ownFolder;
};

} // namespace test
