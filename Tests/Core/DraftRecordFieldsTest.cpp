// Every field of the drafts' records with every kind of value: read, or refused with an error.

#include <zem/Core/CustomActionResult.h>
#include <zem/Core/DraftManagerState.h>
#include <zem/Core/DraftQueueItem.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zem;

struct Value {
    const char* script;
    const char* kind;
    bool isJSON = true;
};

const std::vector<Value> values{
    {"undefined", "undefined", false},
    {"null", "null"},
    {"true", "a boolean"},
    {"7", "a number"},
    {"7.5", "a number"},
    {"'x'", "a string"},
    {"['x']", "an array"},
    {"({})", "an object"},
    {"() => 1", "a function", false},
    {"Symbol('x')", "a symbol", false},
    {"10n", "a BigInt", false},
};

const std::string read = "read";

/// The outcome of a field for each value.
struct Shape {
    const char* expected;
    /// Outcomes by the value's script, for values that are read or fail in their own way.
    std::map<std::string, std::string> outcomes;

    std::string outcome(const Value& value) const {
        const auto found = outcomes.find(value.script);
        return found != outcomes.end()
                   ? found->second
                   : std::string(": expected ") + expected + ", found " + value.kind;
    }
    Shape optional() const {
        Shape made = *this;
        made.outcomes["undefined"] = read;
        made.outcomes["null"] = read;
        return made;
    }
};

const Shape text{"a string", {{"'x'", read}}};
const Shape boolean{"a boolean", {{"true", read}}};
const Shape integer{"an integer",
                    {{"7", read}, {"7.5", ": expected an integer, found another number"}}};
const Shape texts{"an object", {{"({})", read}}};

Shape oneOf(const std::string& choices) {
    return {"a string", {{"'x'", ": expected one of " + choices + ", found another string"}}};
}

Shape record(const std::string& ofAnEmptyOne) {
    return {"an object", {{"({})", ofAnEmptyOne}}};
}

const Shape itemError = record(".status: expected an integer, found undefined");
const Shape item = record(".id: expected a string, found undefined");

struct Field {
    std::string place; ///< as it stands in an error text; empty for the record itself
    Shape shape;
    /// False for what the record's type gives no name: an entry of a map, an element.
    bool isNamed = true;
};

struct Record {
    const char* name;
    /// A script whose value is a whole record.
    const char* sample;
    std::vector<Field> fields;
    /// Why a value cannot be read, or "read".
    std::string (*fromEngine)(js::Scope&, js::Local);
    std::string (*fromJSON)(std::string_view);
};

void PrintTo(const Record& value, std::ostream* out) {
    *out << value.name;
}

template <class T>
std::string described(const tessel::Decoded<T>& outcome) {
    return outcome ? read : outcome.error().description();
}

template <class T>
Record recordOf(const char* name, const char* sample, std::vector<Field> fields) {
    return {name, sample, std::move(fields),
            [](js::Scope& scope, js::Local value) {
                return described(tessel::decodeValue<T>(scope, value));
            },
            [](std::string_view json) {
                return described(tessel::fromAny<T>(tessel::parse(json).value()));
            }};
}

const std::vector<Record> records{
    recordOf<DraftQueueItem>(
        "DraftQueueItem", R"js({
            id: "1", targetId: "2", state: "error", operationType: "update", timestamp: 3,
            metadata: { a: "b" },
            error: { status: 400, headers: { c: "d" }, ok: false, statusText: "e", bodyString: "f" },
        })js",
        {
            {"", record("id: expected a string, found undefined")},
            {"id", text},
            {"targetId", text.optional()},
            {"state", oneOf(R"("pending", "uploading", "error", "completed")")},
            {"operationType", oneOf(R"("create", "update", "delete", "custom")")},
            {"timestamp", integer},
            {"metadata", texts.optional()},
            {"metadata.a", text, false},
            {"error", itemError.optional()},
            {"error.status", integer},
            {"error.headers", texts},
            {"error.headers.c", text, false},
            {"error.ok", boolean},
            {"error.statusText", text},
            {"error.bodyString", text.optional()},
        }),
    recordOf<DraftQueueItemError>(
        "DraftQueueItemError",
        R"js({ status: 400, headers: { c: "d" }, ok: true, statusText: "e", bodyString: "f" })js",
        {
            {"", record("status: expected an integer, found undefined")},
            {"status", integer},
            {"headers", texts},
            {"headers.c", text, false},
            {"ok", boolean},
            {"statusText", text},
            {"bodyString", text.optional()},
        }),
    recordOf<DraftManagerState>(
        "DraftManagerState", R"js({
            queueState: "waiting",
            items: [{ id: "1", state: "pending", operationType: "create", timestamp: 2 },
                    { id: "3", state: "error", operationType: "delete", timestamp: 4,
                      metadata: { a: "b" },
                      error: { status: 400, headers: {}, ok: false, statusText: "e" } }],
        })js",
        {
            {"", record("queueState: expected a string, found undefined")},
            {"queueState", oneOf(R"("started", "stopped", "error", "waiting")")},
            {"items", {"an array", {{"['x']", "[0]: expected an object, found a string"}}}},
            {"items[0]", item, false},
            {"items[1]", item, false},
            {"items[0].state", oneOf(R"("pending", "uploading", "error", "completed")")},
            {"items[1].timestamp", integer},
            {"items[1].metadata.a", text, false},
            {"items[1].error.status", integer},
        }),
    recordOf<CustomActionError>("CustomActionError",
                                R"js({ type: "CLIENT_ERROR", message: "a" })js",
                                {
                                    {"", record("type: expected a string, found undefined")},
                                    {"type", oneOf(R"("NETWORK_ERROR", "CLIENT_ERROR")")},
                                    {"message", text},
                                }),
    recordOf<CustomActionResult>(
        "CustomActionResult",
        R"js({ type: "FAILURE", error: { type: "CLIENT_ERROR", message: "a" } })js",
        {
            {"", record("type: expected a string, found undefined")},
            {"type", oneOf(R"("SUCCESS", "FAILURE")")},
            {"error", record(".type: expected a string, found undefined").optional()},
            {"error.type", oneOf(R"("NETWORK_ERROR", "CLIENT_ERROR")")},
            {"error.message", text},
        }),
};

class DraftRecordFields : public testing::TestWithParam<Record> {
  protected:
    std::string fromEngine(const std::string& script) const {
        return context.perform([&](js::Scope& scope) {
            return GetParam().fromEngine(scope, scope.evaluate(script, "test.js").value());
        });
    }

    /// The same by way of the JSON text.
    std::string fromJSON(const std::string& script) const {
        return GetParam().fromJSON(context.perform([&](js::Scope& scope) {
            return scope.stringify(scope.evaluate(script, "test.js").value()).value().value();
        }));
    }

    /// A record whose field is another value.
    static std::string with(const Field& field, const std::string& value) {
        if (field.place.empty()) {
            return "(" + value + ")";
        }
        return changed("record." + field.place + " = " + value);
    }
    static std::string without(const Field& field) {
        return changed("delete record." + field.place);
    }

    const js::Context context = test::makeContext();

  private:
    static std::string changed(const std::string& change) {
        return std::string("(() => { const record = ") + GetParam().sample + "; " + change +
               "; return record; })()";
    }
};

TEST_P(DraftRecordFields, AreReadWhenEachIsAsItShouldBe) {
    EXPECT_EQ(fromEngine(std::string("(") + GetParam().sample + ")"), read);
    EXPECT_EQ(fromJSON(std::string("(") + GetParam().sample + ")"), read);
}

TEST_P(DraftRecordFields, OfAnotherKindAreNamedWithTheKindThatWasFound) {
    for (const Field& field : GetParam().fields) {
        for (const Value& value : values) {
            const std::string outcome = field.shape.outcome(value);
            std::string expected = outcome == read ? outcome : field.place + outcome;
            if (field.place.empty() && expected.starts_with(": ")) {
                expected.erase(0, 2);
            }
            const std::string script = with(field, value.script);
            EXPECT_EQ(fromEngine(script), expected) << script;
            if (value.isJSON) {
                EXPECT_EQ(fromJSON(script), expected) << "JSON of " << script;
            }
        }
    }
}

TEST_P(DraftRecordFields, ThatAreMissingFailUnlessTheyAreOptional) {
    int count = 0;
    for (const Field& field : GetParam().fields) {
        if (field.place.empty() || !field.isNamed) {
            continue;
        }
        ++count;
        const std::string outcome = field.shape.outcome({"undefined", "undefined"});
        const std::string expected = outcome == read ? outcome : field.place + outcome;
        EXPECT_EQ(fromEngine(without(field)), expected) << field.place;
        EXPECT_EQ(fromJSON(without(field)), expected) << field.place;
    }
    EXPECT_GT(count, 0);
}

TEST_P(DraftRecordFields, ThatThrowAreNamedAndTheirExceptionIsNot) {
    for (const Field& field : GetParam().fields) {
        if (field.place.empty() || field.place.ends_with(']')) {
            continue;
        }
        const std::size_t dot = field.place.rfind('.');
        const std::string holder =
            dot == std::string::npos ? "record" : "record." + field.place.substr(0, dot);
        const std::string name =
            dot == std::string::npos ? field.place : field.place.substr(dot + 1);
        const std::string script = std::string("(() => { const record = ") + GetParam().sample +
                                   "; Object.defineProperty(" + holder + ", '" + name +
                                   "', { get() { throw new Error('private'); } });"
                                   " return record; })()";
        EXPECT_EQ(fromEngine(script), field.place + ": reading it threw an exception");
    }
}

TEST_P(DraftRecordFields, OfOtherNamesAreLeftAlone) {
    EXPECT_EQ(fromEngine(std::string("({ other: Symbol(), ...") + GetParam().sample + "})"), read);
}

INSTANTIATE_TEST_SUITE_P(, DraftRecordFields, testing::ValuesIn(records),
                         [](const testing::TestParamInfo<Record>& tested) {
                             return std::string(tested.param.name);
                         });

} // namespace
