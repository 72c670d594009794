// Loads the ISO codes into the encrypted store, as records and object descriptions, and asks for some
// of them. Every figure that is printed has been read back from the database.

import { byKeyPrefix, byRecordId, byRecordType, line, plan, query, value, write } from "./store.js";

const BATCH = 500;
const showProgress = host.args.includes("--progress");

const objectInfos = [
  { apiName: "Country", keyPrefix: "0CO", label: "Country" },
  { apiName: "Subdivision", keyPrefix: "0SD", label: "Subdivision of a country" },
  { apiName: "Language", keyPrefix: "0LA", label: "Language" },
];

const record = (apiName, id, fields) => ({
  key: `Rimvo::RecordRepresentation:${id}`,
  data: {
    apiName,
    id,
    fields: Object.fromEntries(
      Object.entries(fields)
        .filter(([, fieldValue]) => fieldValue !== undefined)
        .map(([name, fieldValue]) => [name, { value: fieldValue }]),
    ),
  },
});

const entries = [
  ...objectInfos.map((info) => ({
    key: `Rimvo::ObjectInfoRepresentation:${info.apiName}`,
    data: info,
  })),
  ...countries["3166-1"].map((country) =>
    record("Country", `0CO${country.alpha_3}`, {
      Name: country.name,
      Alpha2: country.alpha_2,
      Numeric: country.numeric,
      Flag: country.flag,
    }),
  ),
  ...subdivisions["3166-2"].map((subdivision) =>
    record("Subdivision", `0SD${subdivision.code}`, {
      Name: subdivision.name,
      Type: subdivision.type,
      Parent: subdivision.parent,
    }),
  ),
  ...languages["639-3"].map((language) =>
    record("Language", `0LA${language.alpha_3}`, {
      Name: language.name,
      Scope: language.scope,
      Type: language.type,
    }),
  ),
];

const upsert = (some, batch) => ({
  type: "upsert",
  table: "zem_data",
  keyColumn: "key",
  conflictColumns: ["key"],
  columns: ["key", "data", "metadata"],
  rows: some.map(({ key, data }) => [
    key,
    JSON.stringify(data),
    JSON.stringify({ source: "iso-codes" }),
  ]),
  context: { batch },
});

const progress = (done, total) => {
  if (!showProgress) return;
  const filled = Math.round((40 * done) / total);
  const bar = "█".repeat(filled) + "░".repeat(40 - filled);
  const back = done > 0 ? "\x1b[1A\x1b[2K" : "";
  console.log(`${back}  ${bar} ${String(Math.round((100 * done) / total)).padStart(3)} %`);
};

let reports = 0;
let reportedKeys = 0;
const listener = ZemSqliteStore.registerOnChangedListener((changes) => {
  for (const change of changes) {
    reports += 1;
    reportedKeys += change.keys.length;
  }
});

const main = async () => {
  console.log("Loading the ISO codes");
  progress(0, entries.length);
  for (let first = 0; first < entries.length; first += BATCH) {
    await write([upsert(entries.slice(first, first + BATCH), first / BATCH)]);
    progress(Math.min(first + BATCH, entries.length), entries.length);
  }
  line("stored", `${await value("select count(*) from zem_data")} entries`);
  for (const { apiName } of objectInfos) {
    line(`  ${apiName}`, await value(byRecordType, [apiName]));
  }
  line("listener heard", `${reports} changes, ${reportedKeys} keys`);

  console.log("\nAsking through the JSON indexes");
  const ask = async (label, sql, parameter, show) => {
    const { rows } = await query(sql, [parameter]);
    line(label, show(rows[0][0]));
    for (const step of await plan(sql, [parameter])) line("", step);
  };
  await ask("record 0SDJP-13", byRecordId, "0SDJP-13", (data) => JSON.parse(data).fields.Name.value);
  await ask("records of Country", byRecordType, "Country", (count) => count);
  await ask("key prefix 0LA", byKeyPrefix, "0LA", (data) => JSON.parse(data).label);

  console.log("\nChanging and deleting");
  ZemSqliteStore.unsubscribeOnChangedListener(listener);
  const once = ZemSqliteStore.registerOnChangedListener((changes) => {
    for (const { type, table, keys, context } of changes) {
      line("listener heard", `${type} in ${table}: ${keys.join(", ")} ${JSON.stringify(context)}`);
    }
  });
  await write([
    upsert([record("Country", "0COZEM", { Name: "Nowhere" })], "a country that is not"),
    {
      type: "delete",
      table: "zem_data",
      keyColumn: "key",
      ids: ["Rimvo::RecordRepresentation:0COZEM"],
      context: { why: "it is not" },
    },
  ]);
  ZemSqliteStore.unsubscribeOnChangedListener(once);
  line("left", `${await value("select count(*) from zem_data")} entries`);
};

main();
