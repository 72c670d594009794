#include <boost/describe.hpp>

#include <Tessel/Bridge.h>
#include <map>
#include <optional>
#include <vector>

namespace {

struct Place {
    std::string street;
    std::optional<double> number;
    bool operator==(const Place&) const = default;
};
BOOST_DESCRIBE_STRUCT(Place, (), (street, number))

struct Person {
    std::string name;
    Place home;
    std::vector<Place> others;
    std::map<std::string, Place> named;
    bool operator==(const Person&) const = default;
};
BOOST_DESCRIBE_STRUCT(Person, (), (name, home, others, named))

struct Words {
    std::string delete_;
    std::string namespace_;
    bool operator==(const Words&) const = default;
};
BOOST_DESCRIBE_STRUCT(Words, (), (delete_, namespace_))

struct Empty {
    bool operator==(const Empty&) const = default;
};
BOOST_DESCRIBE_STRUCT(Empty, (), ())

struct Tree {
    std::string name;
    std::vector<Tree> children;
};
BOOST_DESCRIBE_STRUCT(Tree, (), (name, children))

} // namespace

using RecordCoding = test::Bridge;

TEST_F(RecordCoding, RecordsNest) {
    const Person person{"Ada", {"Elm", 3}, {{"Oak", std::nullopt}}, {{"work", {"Fir", 1.5}}}};
    EXPECT_EQ(decoded<Person>(R"(({
                  name: 'Ada', home: {street: 'Elm', number: 3}, others: [{street: 'Oak'}],
                  named: {work: {street: 'Fir', number: 1.5}}, unknown: 1}))")
                  .value(),
              person);
    EXPECT_EQ(written(person), R"({"name":"Ada","home":{"street":"Elm","number":3},)"
                               R"("others":[{"street":"Oak"}],)"
                               R"("named":{"work":{"street":"Fir","number":1.5}}})");
}

TEST_F(RecordCoding, AbsentFieldsAreLeftOut) {
    EXPECT_EQ(written(Place{"Elm", std::nullopt}, "Object.keys(value).join()"), "street");
    EXPECT_EQ(decoded<Place>("({street: 'Elm'})").value(), (Place{"Elm", std::nullopt}));
    EXPECT_EQ(decoded<Place>("({street: 'Elm', number: null})").value(),
              (Place{"Elm", std::nullopt}));
    EXPECT_EQ(decoded<Place>("({street: 'Elm', number: undefined})").value(),
              (Place{"Elm", std::nullopt}));
}

TEST_F(RecordCoding, FieldsKeepTheirOrder) {
    EXPECT_EQ(written(Person{}, "Object.keys(value).join()"), "name,home,others,named");
}

TEST_F(RecordCoding, MissingAndWrongFieldsAreNamed) {
    EXPECT_EQ(failure<Place>("({})"), "street: expected a string, found undefined");
    EXPECT_EQ(failure<Place>("({street: 1, number: 'x'})"),
              "street: expected a string, found a number");
    EXPECT_EQ(failure<Place>("({street: '', number: 'x'})"),
              "number: expected a number, found a string");
    EXPECT_EQ(failure<Person>("({name: '', home: {street: 'x'}, others: [{street: 'a'}, {}]})"),
              "others[1].street: expected a string, found undefined");
    EXPECT_EQ(failure<Person>("({name: '', home: 3})"), "home: expected an object, found a number");
    EXPECT_EQ(failure<std::vector<Person>>(
                  "[{name: '', home: {street: ''}, others: [], named: {a: {street: []}}}]"),
              "[0].named.a.street: expected a string, found an array");
}

TEST_F(RecordCoding, OnlyObjectsAreRecords) {
    EXPECT_EQ(failure<Place>("null"), "expected an object, found null");
    EXPECT_EQ(failure<Place>("'x'"), "expected an object, found a string");
    EXPECT_EQ(failure<Place>("['x']"), "expected an object, found an array");
    EXPECT_EQ(failure<Place>("Object.assign(() => 1, {street: 'x'})"),
              "expected an object, found a function");
}

TEST_F(RecordCoding, InheritedAndComputedFieldsCount) {
    EXPECT_EQ(decoded<Place>("Object.create({street: 'Elm'})").value().street, "Elm");
    EXPECT_EQ(decoded<Place>("new (class { get street() { return 'Oak'; } })").value().street,
              "Oak");
    EXPECT_EQ(decoded<Place>("new Proxy({}, {get: (t, k) => k === 'street' ? 'Fir' : 7})").value(),
              (Place{"Fir", 7}));
}

TEST_F(RecordCoding, ThrowingFieldsAreNamedAndTheirExceptionIsNot) {
    EXPECT_EQ(failure<Place>("({get street() { throw new Error('private'); }})"),
              "street: reading it threw an exception");
    EXPECT_EQ(failure<Place>("new Proxy({}, {get() { throw 'private'; }})"),
              "street: reading it threw an exception");
    EXPECT_EQ(failure<Place>("const {proxy, revoke} = Proxy.revocable({}, {}); revoke(); proxy"),
              "street: reading it threw an exception");
    EXPECT_EQ(eval("1 + 1"), "2");
}

TEST_F(RecordCoding, FieldsAreReadInOrderUpToTheFirstFailure) {
    EXPECT_EQ(failure<Person>(R"(
                  globalThis.reads = [];
                  new Proxy({name: 'x', home: 3, others: []},
                            {get(target, key) { reads.push(key); return target[key]; }}))"),
              "home: expected an object, found a number");
    EXPECT_EQ(eval("reads.join()"), "name,home");
}

TEST_F(RecordCoding, ATrailingUnderscoreDoesNotCross) {
    EXPECT_EQ(decoded<Words>("({delete: 'a', namespace: 'b'})").value(), (Words{"a", "b"}));
    EXPECT_EQ(failure<Words>("({delete_: 'a', namespace_: 'b'})"),
              "delete: expected a string, found undefined");
    EXPECT_EQ(written(Words{"a", "b"}), R"({"delete":"a","namespace":"b"})");
}

TEST_F(RecordCoding, ARecordMayHaveNoFields) {
    EXPECT_EQ(decoded<Empty>("({a: 1})").value(), Empty());
    EXPECT_EQ(written(Empty()), "{}");
}

TEST_F(RecordCoding, NestingIsBounded) {
    // Each tree in a tree is two levels: the array and the tree.
    EXPECT_EQ(decoded<Tree>(R"(
                  var tree = {name: 'leaf', children: []};
                  for (let i = 0; i < 255; ++i) tree = {name: 'node', children: [tree]};
                  tree)")
                  .value()
                  .children.at(0)
                  .name,
              "node");
    const std::string tooDeep = failure<Tree>(R"(
        var tree = {name: 'leaf', children: []};
        for (let i = 0; i < 256; ++i) tree = {name: 'node', children: [tree]};
        tree)");
    EXPECT_TRUE(tooDeep.ends_with(".children[0].name: nested deeper than 512 levels")) << tooDeep;
}

TEST_F(RecordCoding, ACircleEnds) {
    const std::string circle =
        failure<Tree>("const circle = {name: 'x'}; circle.children = [circle]; circle");
    EXPECT_TRUE(circle.ends_with(".children[0].name: nested deeper than 512 levels")) << circle;
}
