#pragma once

// The objects that the runtime's priming reads.

#include <zem/JavaScript/Scope.h>
#include <zem/Priming/PrimingSession.h>

#include <boost/describe.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zem {

struct RecordFieldPrimingWorkRecords {
    std::vector<std::string> ids;
    std::vector<std::string> fields;

    bool operator==(const RecordFieldPrimingWorkRecords&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecordFieldPrimingWorkRecords, (), (ids, fields))

struct RecordFieldPrimingWork {
    explicit RecordFieldPrimingWork(PrimingSession::Work work);

    std::string type = "record-fields";
    std::map<std::string, RecordFieldPrimingWorkRecords> records; ///< by object type

    bool operator==(const RecordFieldPrimingWork&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecordFieldPrimingWork, (), (type, records))

/// Functions that the runtime calls. Each call starts a task of the global queue that tells
/// `target`, and returns at once.
struct WorkerPrimingEventHandler {
    /// The object with `onError(error)` and `onPrimed(ids)`. An error that cannot be decoded is
    /// told as `unknown` with the reason, so that none is lost; ids that are no array of strings
    /// are a TypeError in the runtime. The functions keep `target`.
    static js::Local make(js::Scope& scope, std::shared_ptr<PrimingEventHandler> target);
};

struct WorkerPrimingSessionConfig {
    /// The object with `primingEventHandler`, if there is one to hear.
    static js::Local make(js::Scope& scope, const PrimingSessionConfig& config);
};

} // namespace zem
