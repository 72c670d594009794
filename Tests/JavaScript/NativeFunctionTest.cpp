// Native functions behave as functions, and nothing that happens inside one ends the process.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <array>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::ErrorType;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;

class NativeFunction : public testing::Test {
  protected:
    /// `f`: gives [this, ...arguments].
    NativeFunction() {
        test::setFunction(context, "f", 2,
                          [](Scope& scope, Local self, Arguments arguments) -> Result<Local> {
                              const Local all = scope.array();
                              unsigned index = 0;
                              (void)scope.setAt(all, index++, self);
                              for (const Local argument : arguments) {
                                  (void)scope.setAt(all, index++, argument);
                              }
                              return all;
                          });
    }

    const Context context = test::makeContext();
};

TEST_F(NativeFunction, IsAFunction) {
    test::expectEval(context, "typeof f", "string", "function");
    test::expectEval(context, "f instanceof Function", "boolean", "true");
    test::expectEval(context, "f instanceof Object", "boolean", "true");
    test::expectEval(context, "f.constructor === Function", "boolean", "true");
    test::expectEval(context, "Object.getPrototypeOf(f) === Function.prototype", "boolean", "true");
    test::expectEval(context, "Object.prototype.toString.call(f)", "string", "[object Function]");
    test::expectEval(context, "'prototype' in f", "boolean", "false");
}

TEST_F(NativeFunction, HasANameAndALength) {
    test::expectEval(context, "f.name", "string", "f");
    test::expectEval(context, "f.length", "number", "2");
    for (const char* property : {"name", "length"}) {
        test::expectEval(context,
                         "{ const {writable, enumerable, configurable} = "
                         "Object.getOwnPropertyDescriptor(f, '" +
                             std::string(property) + "'); ({writable, enumerable, configurable}) }",
                         "object", R"({"writable":false,"enumerable":false,"configurable":true})");
    }
    test::expectEval(context, "f.name = 'other'; f.name", "string", "f");
    test::expectEval(context, "Object.keys(f)", "array", "[]");
    test::expectEval(context, "f.extra = 1; f.extra", "number", "1");
}

TEST_F(NativeFunction, HasAText) {
    test::expectEval(context,
                     "/^function .*native code/s.test(Function.prototype.toString.call(f))",
                     "boolean", "true");
    test::expectEval(context, "String(f) === f + ''", "boolean", "true");
    test::expectEval(context, "({a: f, b: 1})", "object", R"({"b":1})");
}

TEST_F(NativeFunction, IsCalledInEveryWay) {
    test::expectEval(context, "f(1, 'b').slice(1)", "array", R"([1,"b"])");
    test::expectEval(context, "f().length", "number", "1");
    test::expectEval(context, "f(...Array(5000).keys()).length", "number", "5001");
    test::expectEval(context, "f.call({me: 1}, 2)", "array", R"([{"me":1},2])");
    test::expectEval(context, "f.apply({me: 1}, [2, 3])", "array", R"([{"me":1},2,3])");
    test::expectEval(context, "f.bind({me: 1}, 2)(3)", "array", R"([{"me":1},2,3])");
    test::expectEval(context, "f.bind(null, 1).name", "string", "bound f");
    test::expectEval(context, "f.bind(null, 1).length", "number", "1");
    test::expectEval(context, "Reflect.apply(f, {me: 1}, [2])", "array", R"([{"me":1},2])");
    test::expectEval(context, "({me: 1, f}).f(2)[1]", "number", "2");
    test::expectEval(context, "new Proxy(f, {})(7)[1]", "number", "7");
    test::expectEval(context, "[4].map(f)[0].slice(1)", "array", "[4,0,[4]]");
    test::expectEval(context, "f(undefined, null).length", "number", "3");
}

TEST_F(NativeFunction, IsCalledByHotCode) {
    test::expectEval(context,
                     "let sum = 0; for (let i = 0; i < 200000; ++i) sum += f(i, 1)[2]; sum",
                     "number", "200000");
}

TEST_F(NativeFunction, IsNoConstructor) {
    test::expectEval(context, "try { new f() } catch (error) { error instanceof TypeError }",
                     "boolean", "true");
    test::expectEval(
        context, "try { Reflect.construct(f, []) } catch (error) { error instanceof TypeError }",
        "boolean", "true");
    test::expectEval(context,
                     "try { (class extends f {}) } catch (error) { error instanceof TypeError }",
                     "boolean", "true");
}

TEST_F(NativeFunction, ServesPromisesAsACallback) {
    test::evaluate(context, "var heard = [];"
                            "Promise.resolve(1).then(f).then(all => heard.push(all[1]));"
                            "Promise.reject(2).catch(f).then(all => heard.push(all[1]));"
                            "Promise.resolve().finally(f).then(() => heard.push('finally'));"
                            "({then: f.bind(null)}).then(r => 0);");
    test::expectEval(context, "heard.sort()", "array", R"([1,2,"finally"])");
}

TEST_F(NativeFunction, KeepsWorkingWhenTheGlobalsAreReplaced) {
    test::evaluate(context,
                   "var was = Function; Function = TypeError = RangeError = String = null");
    test::setFunction(context, "late", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.fail(ErrorType::typeError, scope.describe(*scope.evaluate("Symbol('s')", "")));
    });
    test::expectEval(context, "late instanceof was", "boolean", "true");
    test::expectEval(context, "try { late() } catch (error) { String = was; `${error}` }", "string",
                     "TypeError: Symbol(s)");
}

TEST_F(NativeFunction, ThrowsWhatItFailsWith) {
    test::setFunction(context, "fail", 1,
                      [](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          const std::string type = scope.toText(arguments[0]);
                          if (type == "TypeError") {
                              return scope.fail(ErrorType::typeError, "wrong");
                          }
                          if (type == "RangeError") {
                              return scope.fail(ErrorType::rangeError, "wrong");
                          }
                          return scope.fail(ErrorType::error, "wrong");
                      });
    for (const std::string type : {"Error", "TypeError", "RangeError"}) {
        test::expectEval(context, "fail('" + type + "')", "exception", type + ": wrong");
        test::expectEval(context,
                         "try { fail('" + type + "') } catch (error) { [error.constructor === " +
                             type + ", error instanceof Error, error.name, error.message] }",
                         "array", "[true,true,\"" + type + "\",\"wrong\"]");
    }
}

TEST_F(NativeFunction, PassesOnWhatJavaScriptThrew) {
    test::setFunction(context, "pass", 1,
                      [](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          return scope.call(arguments[0]);
                      });
    test::expectEval(context,
                     "const thrown = {my: 'own'};"
                     "try { pass(() => { throw thrown }) } catch (error) { error === thrown }",
                     "boolean", "true");
    test::expectEval(context,
                     "try { pass(() => { throw undefined }) } catch (error) { typeof error }",
                     "string", "undefined");
    test::expectEval(context, "pass(() => 5)", "number", "5");
}

TEST_F(NativeFunction, TurnsEveryNativeExceptionIntoAJavaScriptOne) {
    class Odd {};
    test::setFunction(context, "raise", 1,
                      [](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          switch (static_cast<int>(scope.toNumber(arguments[0]))) {
                          case 0:
                              throw std::runtime_error("caf\xC3\xA9 \xFF");
                          case 1:
                              throw std::bad_alloc();
                          case 2:
                              throw 42;
                          case 3:
                              throw Odd();
                          case 4:
                              throw "text";
                          default:
                              throw std::make_unique<int>(1);
                          }
                      });
    test::expectEval(context, "raise(0)", "exception", "Error: caf\xC3\xA9 \xEF\xBF\xBD");
    test::expectEval(context, "raise(1)", "exception", "Error: std::bad_alloc");
    for (const char* script : {"raise(2)", "raise(3)", "raise(4)", "raise(5)"}) {
        test::expectEval(context, script, "exception", "Error: unknown native exception");
    }
    test::expectEval(context, "try { raise(2) } catch (error) { error instanceof Error }",
                     "boolean", "true");
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST_F(NativeFunction, ThrowsAnExceptionOfJavaScriptAsWhatItIs) {
    test::setFunction(context, "raise", 1,
                      [](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          throw scope.exception(arguments[0]);
                      });
    test::expectEval(context,
                     "const own = {my: 'own'};"
                     "try { raise(own) } catch (error) { error === own }",
                     "boolean", "true");
}

TEST_F(NativeFunction, CallsBackAndForth) {
    test::setFunction(
        context, "down", 1, [](Scope& scope, Local, Arguments arguments) -> Result<Local> {
            const double depth = scope.toNumber(arguments[0]);
            if (depth == 0) {
                return scope.string("bottom");
            }
            return scope.call(*scope.get(scope.global(), "step"), {scope.number(depth - 1)});
        });
    test::evaluate(context, "function step(depth) { return down(depth) + depth }");
    test::expectEval(context, "step(5)", "string", "bottom012345");
}

TEST_F(NativeFunction, EndlessRecursionThroughItIsARangeError) {
    test::setFunction(context, "again", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.call(*scope.get(scope.global(), "recurse"));
    });
    test::evaluate(context, "function recurse() { return again() }");
    test::expectEval(context, "recurse()", "exception",
                     "RangeError: Maximum call stack size exceeded.");
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST_F(NativeFunction, GivesUndefinedForAnEmptyLocal) {
    test::setFunction(context, "empty", 0,
                      [](Scope&, Local, Arguments) -> Result<Local> { return Local(); });
    test::expectEval(context, "empty()", "undefined", "undefined");
}

TEST_F(NativeFunction, SeesItsContextEntered) {
    test::setFunction(context, "entered", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.boolean(scope.context().isEntered());
    });
    EXPECT_FALSE(context.isEntered());
    test::expectEval(context, "entered()", "boolean", "true");
    EXPECT_FALSE(context.isEntered());
}

} // namespace
