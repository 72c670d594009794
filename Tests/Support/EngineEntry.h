#pragma once

// Which way this run of the tests enters the engine: `--engine=inline` or `--engine=bound`.

namespace test {

enum class EngineEntry { inline_, bound };

inline EngineEntry engineEntry = EngineEntry::bound;

} // namespace test
