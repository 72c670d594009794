import { z } from 'zod';

import { done, equal } from '../../Globals/bundles/check.js';

const Person = z.object({
    id: z.uuid(),
    name: z.string().min(1).trim(),
    mail: z.email().optional(),
    born: z.coerce.date(),
    kind: z.enum(['one', 'two']).default('one'),
    tags: z.array(z.string()).max(2),
    site: z.url(),
});

const person = Person.parse({
    id: crypto.randomUUID(), name: ' Ada ', born: '1815-12-10', tags: ['x'], site: 'https://host.test/',
});
equal([person.name, person.kind, person.born.getUTCFullYear(), person.tags], ['Ada', 'one', 1815, ['x']]);
const failed = Person.safeParse({ id: 'no', name: '', mail: 'x', born: 'x', kind: 'three', tags: ['a', 'b', 'c'], site: 'x' });
equal([failed.success, failed.error.issues.map(({ path }) => path.join('.'))],
    [false, ['id', 'name', 'mail', 'born', 'kind', 'tags', 'site']]);
const Answer = z.discriminatedUnion('type', [
    z.object({ type: z.literal('ok'), value: z.number() }),
    z.object({ type: z.literal('error'), why: z.string() }),
]);
equal(Answer.parse({ type: 'error', why: 'w' }), { type: 'error', why: 'w' });
z.instanceof(Response).parse(new Response());
z.file().max(5).mime('text/plain').parse(new File(['x'], 'f', { type: 'text/plain' }));
equal(z.file().max(1).safeParse(new File(['xx'], 'f')).success, false);
z.string().refine(async (text) => text === 'later').parseAsync('later').then((text) => {
    equal(text, 'later');
    done();
});
