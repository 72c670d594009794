#include <boost/describe.hpp>

#include <Tessel/Bridge.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

using test::evaluate;
using test::expectEval;

namespace {

struct Operation {
    std::string table;
    std::string keyColumn;
};
BOOST_DESCRIBE_STRUCT(Operation, (), (table, keyColumn))

/// Methods of every shape.
class Sample : public tessel::Plugin, public std::enable_shared_from_this<Sample> {
  public:
    explicit Sample(std::string name = "ZemSample")
        : name(std::move(name)) {}

    std::string_view namespace_() const override { return name; }

    void bind(tessel::Connection& to) override {
        to.bind<"add", &Sample::add>(*this);
        to.bind<"nothing", &Sample::nothing>(*this);
        to.bind<"count", &Sample::count>(*this);
        to.bind<"join", &Sample::join>(*this);
        to.bind<"find", &Sample::find>(*this);
        to.bind<"first", &Sample::first>(*this);
        to.bind<"batchOperations", &Sample::batchOperations>(*this);
        to.bind<"fail", &Sample::fail>(*this);
        to.bind<"run", &Sample::run>(*this);
        to.bind<"leave", &Sample::leave>(*this);
        to.bind<"wasOn", &Sample::wasOn>(*this);
    }

    double add(double left, double right) { return left + right; }
    void nothing() { ++calls; }
    int count() const noexcept { return calls; }
    std::string join(const std::vector<std::string>& texts) const {
        std::string joined;
        for (const std::string& text : texts) {
            joined += text;
        }
        return joined;
    }
    std::optional<Operation> find(std::optional<std::string> table) {
        return table ? std::optional(Operation{*table, "key"}) : std::nullopt;
    }
    Operation first(std::vector<Operation> operations) noexcept { return operations.front(); }
    void batchOperations(std::vector<Operation>, tessel::Callback<std::string>) { ++calls; }

    void fail(int how) {
        switch (how) {
        case 0:
            throw std::runtime_error("the reason");
        case 1:
            throw std::bad_alloc();
        case 2:
            throw 3;
        case 3:
            throw std::runtime_error("");
        case 4:
            throw std::runtime_error("broken \xFF text");
        default:
            throw "text";
        }
    }

    /// Calls the function at once, as a method that knows the engine can.
    void run(zem::js::Value function) {
        function.context().perform([&](zem::js::Scope& scope) {
            if (const auto answer = scope.call(scope.local(function)); !answer) {
                throw answer.error();
            }
        });
    }

    /// Lets go of what may be the last reference to this.
    int leave() {
        lastReference.reset();
        return ++calls;
    }

    bool wasOn() { return std::this_thread::get_id() == expectedThread; }

    const std::string name;
    int calls = 0;
    std::shared_ptr<Sample> lastReference;
    std::thread::id expectedThread;
};

class Connection : public test::Bridge {
  protected:
    std::shared_ptr<Sample> sample = std::make_shared<Sample>();
    void SetUp() override { connection->add(*sample); }
};

} // namespace

TEST_F(Connection, BindsMethodsByTheirSignatures) {
    expectEval(context, "ZemSample.add(2, 0.5)", "number", "2.5");
    expectEval(context, "ZemSample.nothing()", "undefined", "undefined");
    expectEval(context, "ZemSample.count()", "number", "1");
    expectEval(context, "ZemSample.join(['a', 'b'])", "string", "ab");
    expectEval(context, "ZemSample.find('t')", "object", R"({"table":"t","keyColumn":"key"})");
    expectEval(context, "ZemSample.find(null)", "null", "null");
    expectEval(context, "ZemSample.find(undefined)", "null", "null");
    expectEval(context, "ZemSample.first([{table: 't', keyColumn: 'k'}])", "object",
               R"({"table":"t","keyColumn":"k"})");
}

TEST_F(Connection, MethodsBehaveAsFunctions) {
    expectEval(context, "typeof ZemSample.add", "string", "function");
    expectEval(context, "ZemSample.add instanceof Function", "boolean", "true");
    expectEval(context, "ZemSample.add.name", "string", "add");
    expectEval(context, "ZemSample.add.length", "number", "2");
    expectEval(context, "ZemSample.count.length", "number", "0");
    expectEval(context, "ZemSample.add.call(null, 1, 2)", "number", "3");
    expectEval(context, "ZemSample.add.apply(undefined, [1, 2])", "number", "3");
    expectEval(context, "ZemSample.add.bind(null, 1)(2)", "number", "3");
    expectEval(context, "const {add} = ZemSample; add(1, 2)", "number", "3");
    expectEval(context, "[1, 2, 3].reduce(ZemSample.add)", "number", "6");
    expectEval(context, "Object.keys(ZemSample)", "array",
               R"(["add","nothing","count","join","find","first","batchOperations","fail","run",)"
               R"("leave","wasOn"])");
}

TEST_F(Connection, AFailedArgumentNamesItsPlaceByteForByte) {
    const auto store = std::make_shared<Sample>("ZemSqliteStore");
    connection->add(*store);
    evaluate(context, "var good = {table: 't', keyColumn: 'k'}; var done = () => 0;");
    const struct {
        const char* call;
        const char* text;
    } table[] = {
        {"batchOperations([good, good, good, {table: 't', keyColumn: 7}], done)",
         "argument 1: [3].keyColumn: expected a string, found a number"},
        {"batchOperations([good, null], done)", "argument 1: [1]: expected an object, found null"},
        {"batchOperations(good, done)", "argument 1: expected an array, found an object"},
        {"batchOperations(undefined, done)", "argument 1: expected an array, found undefined"},
        {"batchOperations([good], {})", "argument 2: expected a function, found an object"},
        {"batchOperations([good], undefined)", "argument 2: expected a function, found undefined"},
        {"batchOperations([good])", "argument 2: expected a function, found nothing"},
        {"batchOperations()", "argument 1: expected an array, found nothing"},
        {"find()", "argument 1: expected a string, found nothing"},
        {"add(1)", "argument 2: expected a number, found nothing"},
        {"add('1', 2)", "argument 1: expected a number, found a string"},
        {"run()", "argument 1: expected a value, found nothing"},
        {"fail(2.5)", "argument 1: expected an integer, found another number"},
        {"join([, 'a'])", "argument 1: [0]: expected a string, found undefined"},
    };
    for (const auto& row : table) {
        const std::string method(row.call, std::string_view(row.call).find('('));
        expectEval(context, std::string("ZemSqliteStore.") + row.call, "exception",
                   "TypeError: ZemSqliteStore." + method + ", " + row.text);
    }
    EXPECT_EQ(store->calls, 0);
}

TEST_F(Connection, AFailedArgumentIsARealTypeError) {
    expectEval(
        context,
        "try { ZemSample.add() } catch (e) { [e instanceof TypeError, e.constructor.name, "
        "e.message] }",
        "array",
        R"([true,"TypeError","ZemSample.add, argument 1: expected a number, found nothing"])");
}

TEST_F(Connection, NoValueIsNamed) {
    for (const char* call :
         {"add('private')", "join(['a', {private: 1}])", "join('private')", "find(['private'])",
          "first([{table: 'private', keyColumn: Symbol('private')}])",
          "first([{get table() { throw new Error('private'); }}])"}) {
        const std::string thrown = eval(std::string("ZemSample.") + call);
        EXPECT_TRUE(thrown.starts_with("threw TypeError: ZemSample.")) << thrown;
        EXPECT_EQ(thrown.find("private"), std::string::npos) << thrown;
    }
}

TEST_F(Connection, ArgumentsAreDecodedLeftToRightUpToTheFirstFailure) {
    evaluate(context, R"(
        var transcript = [];
        function watched(name, fields) {
            return new Proxy(fields, {get(target, key) {
                transcript.push(name + '.' + key);
                return target[key];
            }});
        }
        function listed(name, fields) {
            const list = [];
            Object.defineProperty(list, 0, {get() {
                transcript.push(name);
                return watched(name, fields);
            }});
            return list;
        })");
    expectEval(context, R"(ZemSample.batchOperations(
                   listed('first', {table: 't', keyColumn: 'k'}), 3))",
               "exception",
               "TypeError: ZemSample.batchOperations, argument 2: expected a function, found a "
               "number");
    expectEval(context, R"(ZemSample.batchOperations(listed('second', {table: 7}), 3))",
               "exception",
               "TypeError: ZemSample.batchOperations, argument 1: [0].table: expected a string, "
               "found a number");
    expectEval(context, "transcript", "array",
               R"(["first","first.table","first.keyColumn","second","second.table"])");
    EXPECT_EQ(sample->calls, 0);
}

TEST_F(Connection, TheFirstFailureCountsBeforeAMissingArgument) {
    expectEval(context, "ZemSample.add('x')", "exception",
               "TypeError: ZemSample.add, argument 1: expected a number, found a string");
}

TEST_F(Connection, ExtraArgumentsAreIgnored) {
    expectEval(context, "ZemSample.add(1, 2, 'x', {get a() { throw 1; }})", "number", "3");
    expectEval(context, "ZemSample.nothing(1)", "undefined", "undefined");
}

TEST_F(Connection, EveryNativeExceptionBecomesAnError) {
    expectEval(context, "ZemSample.fail(0)", "exception", "Error: the reason");
    expectEval(context, "ZemSample.fail(1)", "exception", "Error: std::bad_alloc");
    expectEval(context, "ZemSample.fail(2)", "exception", "Error: unknown native exception");
    expectEval(context, "ZemSample.fail(3)", "exception", "Error");
    expectEval(context, "ZemSample.fail(4)", "exception", "Error: broken \xEF\xBF\xBD text");
    expectEval(context, "ZemSample.fail(5)", "exception", "Error: unknown native exception");
    expectEval(context, "try { ZemSample.fail(0) } catch (e) { e.constructor === Error }",
               "boolean", "true");
    expectEval(context, "ZemSample.add(1, 2)", "number", "3");
}

TEST_F(Connection, JavaScriptsOwnExceptionPassesThroughAMethod) {
    expectEval(context, "ZemSample.run(() => { throw new RangeError('inner'); })", "exception",
               "RangeError: inner");
    expectEval(context,
               "const mine = {}; try { ZemSample.run(() => { throw mine; }) } "
               "catch (e) { e === mine }",
               "boolean", "true");
}

TEST_F(Connection, EndlessRecursionThroughAMethodIsAnException) {
    evaluate(context, R"(
        var depth = 0;
        var deepest;
        function again() {
            ++depth;
            try {
                ZemSample.run(again);
            } catch (error) {
                deepest ??= error;
                throw error;
            }
        }
        try { again(); } catch (error) {})");
    expectEval(context, "depth > 100", "boolean", "true");
    expectEval(context, "String(deepest)", "string",
               "RangeError: Maximum call stack size exceeded.");
    expectEval(context, "ZemSample.add(1, 2)", "number", "3");
}

TEST_F(Connection, MethodsRunOnTheThreadThatRunsTheScript) {
    sample->expectedThread =
        context.perform([](zem::js::Scope&) { return std::this_thread::get_id(); });
    expectEval(context, "ZemSample.wasOn()", "boolean", "true");
}

TEST_F(Connection, AMethodOfAPluginThatIsGoneThrows) {
    sample.reset();
    expectEval(context, "ZemSample.add(1, 2)", "exception",
               "Error: ZemSample.add: the plugin is gone");
    expectEval(context, "try { ZemSample.nothing() } catch (e) { e.constructor === Error }",
               "boolean", "true");
    expectEval(context, "ZemSample.add()", "exception", "Error: ZemSample.add: the plugin is gone");
}

TEST_F(Connection, HoldsItsPluginsWeakly) {
    EXPECT_EQ(sample.use_count(), 1);
    expectEval(context, "ZemSample.add(1, 2)", "number", "3");
    EXPECT_EQ(sample.use_count(), 1);
}

TEST_F(Connection, AMethodMayDropTheLastReferenceToItsOwner) {
    const std::weak_ptr<Sample> watched = sample;
    sample->lastReference = sample;
    sample.reset();
    expectEval(context, "ZemSample.leave()", "number", "1");
    EXPECT_TRUE(watched.expired());
    expectEval(context, "ZemSample.leave()", "exception",
               "Error: ZemSample.leave: the plugin is gone");
}

TEST_F(Connection, MethodsOutliveTheConnection) {
    connection.reset();
    expectEval(context, "ZemSample.add(1, 2)", "number", "3");
}

TEST_F(Connection, APluginMayBeAddedToSeveralConnections) {
    const zem::js::Context other = test::makeContext();
    tessel::Connection second(other);
    second.add(*sample);
    expectEval(context, "ZemSample.nothing(); ZemSample.count()", "number", "1");
    expectEval(other, "ZemSample.nothing(); ZemSample.count()", "number", "2");
}

TEST_F(Connection, TwoPluginsOfAClassAreApart) {
    const auto second = std::make_shared<Sample>("ZemOther");
    connection->add(*second);
    expectEval(context, "ZemOther.nothing(); [ZemSample.count(), ZemOther.count()]", "array",
               "[0,1]");
    expectEval(context, "ZemOther.add()", "exception",
               "TypeError: ZemOther.add, argument 1: expected a number, found nothing");
}

TEST_F(Connection, AddingAPluginAgainReplacesItsObject) {
    evaluate(context, "var before = ZemSample");
    const auto second = std::make_shared<Sample>();
    connection->add(*second);
    expectEval(context, "before === ZemSample", "boolean", "false");
    expectEval(context, "ZemSample.nothing(); [before.count(), ZemSample.count()]", "array",
               "[0,1]");
}

TEST_F(Connection, APluginThatFailsToBindLeavesNothingBehind) {
    Sample nobodyOwnsThis("ZemUnowned");
    EXPECT_THROW(connection->add(nobodyOwnsThis), std::bad_weak_ptr);
    expectEval(context, "typeof ZemUnowned", "string", "undefined");
    const auto good = std::make_shared<Sample>("ZemGood");
    connection->add(*good);
    expectEval(context, "ZemGood.add(1, 2)", "number", "3");
}

TEST_F(Connection, ARefusedNamespaceIsReported) {
    evaluate(context, "Object.defineProperty(globalThis, 'ZemRefused', "
                      "{set() { throw new Error('no'); }, get() {}})");
    const auto refused = std::make_shared<Sample>("ZemRefused");
    try {
        connection->add(*refused);
        FAIL() << "it was added";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "ZemRefused: Error: no");
    }
}

TEST_F(Connection, APluginMayAddAnother) {
    class Outer : public tessel::Plugin, public std::enable_shared_from_this<Outer> {
      public:
        explicit Outer(Sample& inner)
            : inner(inner) {}
        std::string_view namespace_() const override { return "ZemOuter"; }
        void bind(tessel::Connection& to) override {
            to.add(inner);
            to.bind<"ask", &Outer::ask>(*this);
        }
        int ask() { return 7; }
        Sample& inner;
    };
    Sample& inner = *sample;
    const auto outer = std::make_shared<Outer>(inner);
    connection->add(*outer);
    expectEval(context, "[ZemOuter.ask(), ZemSample.add(1, 2)]", "array", "[7,3]");
}
