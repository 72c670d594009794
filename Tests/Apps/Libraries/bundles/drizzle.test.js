import { count, desc, eq } from 'drizzle-orm';
import { integer, sqliteTable, text } from 'drizzle-orm/sqlite-core';
import { drizzle } from 'drizzle-orm/sqlite-proxy';

import { done, equal } from '../../Globals/bundles/check.js';
import { query } from './store.js';

const people = sqliteTable('people', {
    id: integer('id').primaryKey(),
    name: text('name').notNull(),
    isActive: integer('is_active', { mode: 'boolean' }).default(true),
    tags: text('tags', { mode: 'json' }),
});
const pets = sqliteTable('pets', { owner: integer('owner'), name: text('name') });

(async () => {
    const db = drizzle(async (sql, parameters, method) => {
        const { rows } = await query(sql, parameters);
        return { rows: method === 'get' ? rows[0] : rows };
    });
    await db.run('create table people (id integer primary key, name text not null, is_active integer default 1, tags text)');
    await db.run('create table pets (owner integer, name text)');
    const [inserted] = await db.insert(people).values([
        { name: 'Ada', tags: ['a', 'b'] }, { name: 'Grace', isActive: false, tags: { deep: 1 } },
    ]).returning();
    equal(inserted, { id: 1, name: 'Ada', isActive: true, tags: ['a', 'b'] });
    await db.insert(pets).values({ owner: 2, name: 'Rex é' });

    equal(await db.select().from(people).orderBy(desc(people.id)), [
        { id: 2, name: 'Grace', isActive: false, tags: { deep: 1 } }, inserted]);
    equal(await db.select({ owner: people.name, pet: pets.name }).from(people)
        .leftJoin(pets, eq(pets.owner, people.id)).where(eq(people.id, 2)), [{ owner: 'Grace', pet: 'Rex é' }]);
    await db.update(people).set({ isActive: true }).where(eq(people.name, 'Grace'));
    equal(await db.select({ active: count() }).from(people).where(eq(people.isActive, true)).get(), { active: 2 });
    equal(await db.select().from(people).where(eq(people.id, 9)).get(), undefined);

    let failed;
    await db.transaction(async (used) => {
        await used.delete(people);
        throw new Error('back');
    }).catch((error) => {
        failed = error.message;
    });
    equal([failed, (await db.select().from(people)).length], ['back', 2]);
    done();
})();
