import { CompiledQuery, Kysely, sql, SqliteAdapter, SqliteIntrospector, SqliteQueryCompiler } from 'kysely';

import { done, equal, rejects } from '../../Globals/bundles/check.js';
import { query } from './store.js';

// There is one connection: those who want it take turns.
let turn = Promise.resolve();
const connection = {
    async executeQuery({ sql: text, parameters }) {
        const { columns, rows } = await query(text, [...parameters]);
        return { rows: rows.map((row) => Object.fromEntries(row.map((value, index) => [columns[index], value]))) };
    },
};
const driver = {
    async init() {},
    async acquireConnection() {
        let release;
        const before = turn;
        turn = new Promise((resolve) => {
            release = resolve;
        });
        await before;
        return { ...connection, release };
    },
    beginTransaction: (used) => used.executeQuery(CompiledQuery.raw('begin')),
    commitTransaction: (used) => used.executeQuery(CompiledQuery.raw('commit')),
    rollbackTransaction: (used) => used.executeQuery(CompiledQuery.raw('rollback')),
    releaseConnection: async (used) => used.release(),
    async destroy() {},
};

(async () => {
    const db = new Kysely({
        dialect: {
            createAdapter: () => new SqliteAdapter(),
            createDriver: () => driver,
            createIntrospector: (used) => new SqliteIntrospector(used),
            createQueryCompiler: () => new SqliteQueryCompiler(),
        },
    });
    await db.schema.createTable('person')
        .addColumn('id', 'integer', (column) => column.primaryKey())
        .addColumn('name', 'text', (column) => column.notNull().unique())
        .execute();
    await db.schema.createTable('pet').addColumn('owner', 'integer').addColumn('name', 'text').execute();
    await db.insertInto('person').values([{ id: 1, name: 'Ada' }, { id: 2, name: "O'Neil é" }]).execute();
    await db.insertInto('pet').values({ owner: 2, name: null }).execute();
    equal(await db.selectFrom('person').innerJoin('pet', 'pet.owner', 'person.id')
        .select(['person.name as owner', 'pet.name']).execute(), [{ owner: "O'Neil é", name: null }]);
    equal(await db.updateTable('person').set({ name: 'Grace' }).where('id', '=', 1).returningAll().executeTakeFirst(),
        { id: 1, name: 'Grace' });
    await rejects(db.insertInto('person').values({ id: 3, name: 'Grace' }).execute(), 'Error',
        "The operation couldn't be completed. (SQLiteResult error 19.)");

    await rejects(db.transaction().execute(async (used) => {
        await used.deleteFrom('person').execute();
        throw new Error('back');
    }), 'Error', 'back');
    await db.transaction().execute((used) => used.insertInto('person').values({ id: 3, name: 'Lin' }).execute());
    equal(await db.selectFrom('person').select(({ fn }) => fn.countAll().as('count')).executeTakeFirst(), { count: 3 });
    equal((await sql`select ${'bound'} as value`.execute(db)).rows, [{ value: 'bound' }]);
    equal((await db.introspection.getTables()).filter(({ name }) => name === 'pet')
        .map(({ columns }) => columns.map(({ name }) => name)), [['owner', 'name']]);
    done();
})();
