import { buildSchema, graphql, parse, print, subscribe, validate } from 'graphql';

import { done, equal } from '../../Globals/bundles/check.js';

const schema = buildSchema(`
    type Person { id: ID!, name: String!, friends(first: Int = 1): [Person!]! }
    type Query { person(id: ID!): Person, failing: String }
    type Mutation { rename(id: ID!, name: String!): Person }
    type Subscription { ticks: Int }
`);
const people = { 1: { id: '1', name: 'Ada' }, 2: { id: '2', name: 'Grace' } };
for (const person of Object.values(people)) {
    person.friends = ({ first }) => Object.values(people).filter((other) => other !== person).slice(0, first);
}
const rootValue = {
    person: async ({ id }) => people[id],
    failing: () => {
        throw new Error('refused');
    },
    rename: ({ id, name }) => Object.assign(people[id], { name }),
    async *ticks() {
        yield { ticks: 1 };
        yield { ticks: 2 };
    },
};
const ask = async (source, variableValues) => JSON.parse(JSON.stringify(await graphql({ schema, source, rootValue, variableValues })));

(async () => {
    equal(await ask('query ($id: ID!) { person(id: $id) { name friends { name } } }', { id: '1' }),
        { data: { person: { name: 'Ada', friends: [{ name: 'Grace' }] } } });
    equal(await ask('mutation { rename(id: "2", name: "é") { id name } }'), { data: { rename: { id: '2', name: 'é' } } });
    const { data, errors } = await ask('{ failing person(id: "9") { id } }');
    equal([data, errors[0].message, errors[0].path], [{ failing: null, person: null }, 'refused', ['failing']]);
    equal(validate(schema, parse('{ person { id } none }')).map(({ message }) => message), [
        'Field "person" argument "id" of type "ID!" is required, but it was not provided.',
        'Cannot query field "none" on type "Query".']);
    equal(print(parse('{a(b:1){c}}')), '{\n  a(b: 1) {\n    c\n  }\n}');
    const ticks = [];
    for await (const result of await subscribe({ schema, document: parse('subscription { ticks }'), rootValue })) {
        ticks.push(result.data.ticks);
    }
    equal(ticks, [1, 2]);
    done();
})();
