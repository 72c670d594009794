// JavaScript exceptions: the text, the place and the stack of any thrown value.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <optional>
#include <string>

namespace {

using zem::js::Context;
using zem::js::Exception;
using zem::js::Kind;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;

class ExceptionTest : public testing::Test {
  protected:
    Exception thrownBy(std::string_view script, std::string_view url = "bundle.js", int line = 1) {
        return context.perform([&](Scope& scope) {
            const Result<Local> result = scope.evaluate(script, url, line);
            EXPECT_FALSE(result) << script;
            return result ? scope.exception(scope.undefined()) : result.error();
        });
    }

    const Context context = test::makeContext();
};

TEST_F(ExceptionTest, SaysWhatWasThrownAndWhere) {
    const Exception exception = thrownBy("function inner() {\n"
                                         "  missing();\n"
                                         "}\n"
                                         "function outer() { inner() }\n"
                                         "outer();\n");
    EXPECT_EQ(exception.text(), "ReferenceError: Can't find variable: missing");
    EXPECT_EQ(exception.sourceURL(), "bundle.js");
    EXPECT_EQ(exception.line(), 2);
    EXPECT_EQ(exception.column(), 10);
    EXPECT_EQ(exception.place(), "bundle.js:2:10");
    EXPECT_EQ(exception.stack(),
              "inner@bundle.js:2:10\nouter@bundle.js:4:25\nglobal code@bundle.js:5:6");
}

TEST_F(ExceptionTest, CountsFromTheStartingLine) {
    EXPECT_EQ(thrownBy("\nthrow new Error('x')", "part.js", 100).place(), "part.js:101:16");
}

TEST_F(ExceptionTest, TellsWhereASyntaxErrorIs) {
    const Exception exception = thrownBy("let ok = 1;\nlet let = 2;\n");
    EXPECT_EQ(exception.text().substr(0, 13), "SyntaxError: ");
    EXPECT_EQ(exception.sourceURL(), "bundle.js");
    EXPECT_EQ(exception.line(), 2);
}

TEST_F(ExceptionTest, OfSomethingThatIsNoErrorHasATextOnly) {
    struct Row {
        const char* script;
        const char* text;
        Kind kind;
    };
    for (const Row& row :
         {Row{"throw 'text'", "text", Kind::string}, Row{"throw 5", "5", Kind::number},
          Row{"throw undefined", "undefined", Kind::undefined},
          Row{"throw null", "null", Kind::null},
          Row{"throw Symbol('s')", "Symbol(s)", Kind::symbol},
          Row{"throw {toString() { return 'mine' }}", "mine", Kind::object},
          Row{"throw {toString() { throw 1 }}", "an object", Kind::object},
          Row{"throw Object.create(null)", "an object", Kind::object},
          Row{"throw () => 1", "() => 1", Kind::function},
          Row{"throw [1, [2]]", "1,2", Kind::array}}) {
        const Exception exception = thrownBy(row.script);
        EXPECT_EQ(exception.text(), row.text) << row.script;
        EXPECT_EQ(exception.place(), "") << row.script;
        EXPECT_EQ(exception.stack(), "") << row.script;
        context.perform([&](Scope& scope) {
            EXPECT_EQ(scope.kind(scope.local(exception.value())), row.kind) << row.script;
        });
    }
}

// Reading these objects throws: the object itself, a new error or a number.
TEST_F(ExceptionTest, SurvivesThrownObjectsThatThrowWhenRead) {
    EXPECT_EQ(thrownBy("const trap = {get stack() { throw trap }, get line() { throw trap }, "
                       "get sourceURL() { throw trap }, get column() { throw trap }, "
                       "toString() { throw trap }}; throw trap")
                  .text(),
              "an object");
    EXPECT_EQ(thrownBy("throw new Proxy({}, {get() { throw new Error('again') }})").text(),
              "an object");
    EXPECT_EQ(thrownBy("const error = new Error('x');"
                       "Object.defineProperty(error, 'message', {get() { throw 1 }}); throw error")
                  .text(),
              "an object");
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST_F(ExceptionTest, TakesNoPlaceThatIsNone) {
    EXPECT_EQ(thrownBy("throw {line: NaN, column: 1e300, sourceURL: 5, stack: {}}").place(), "");
    EXPECT_EQ(thrownBy("throw {line: -1, column: -Infinity, sourceURL: 'a.js'}").place(),
              "a.js:0:0");
    EXPECT_EQ(thrownBy("throw {line: 2.5, column: 3, sourceURL: 'a.js'}").place(), "a.js:2:3");
}

TEST_F(ExceptionTest, ValueIsTheThrownOneItself) {
    const Exception exception = thrownBy("var thrown = new Error('x'); throw thrown");
    context.perform([&](Scope& scope) {
        EXPECT_TRUE(scope.isSame(scope.local(exception.value()), *scope.evaluate("thrown", "")));
    });
}

TEST_F(ExceptionTest, TextIsThereAfterTheContextIsGone) {
    std::optional<Exception> exception;
    {
        const Context other = test::makeUncheckedContext();
        exception = other.perform([](Scope& scope) {
            return scope.evaluate("throw new Error('late')", "late.js").error();
        });
    }
    EXPECT_EQ(exception->text(), "Error: late");
    EXPECT_EQ(exception->place(), "late.js:1:16");
}

TEST_F(ExceptionTest, OfANativeFunctionHasTheStackOfItsCaller) {
    test::setFunction(context, "native", 0,
                      [](Scope& scope, Local, zem::js::Arguments) -> Result<Local> {
                          return scope.fail(zem::js::ErrorType::typeError, "not so");
                      });
    const Exception exception = thrownBy("function caller() {\n  native();\n}\ncaller();");
    EXPECT_EQ(exception.text(), "TypeError: not so");
    EXPECT_NE(exception.stack().find("caller@bundle.js:2:9\nglobal code@bundle.js:4:7"),
              std::string::npos)
        << exception.stack();
}

} // namespace
