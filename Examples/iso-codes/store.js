// Promise forms of the store's methods, shared by the two programs of this example.

export const query = (sql, params = []) =>
  new Promise((resolve, reject) =>
    ZemSqliteStore.query(sql, params, resolve, (text) => reject(new Error(text))),
  );

export const write = (operations) =>
  new Promise((resolve, reject) =>
    ZemSqliteStore.batchOperations(operations, (text) =>
      text === null ? resolve() : reject(new Error(text)),
    ),
  );

export const value = async (sql, params) => (await query(sql, params)).rows[0][0];

/** The query plan's lines, which name the index that a query uses. */
export const plan = async (sql, params) =>
  (await query(`explain query plan ${sql}`, params)).rows.map((row) => row[3]);

const RECORDS = "key like 'Rimvo::RecordRepresentation:%'";
const OBJECT_INFOS = "key like 'Rimvo::ObjectInfoRepresentation:%'";

/** Queries that the store's JSON indexes answer. */
export const byRecordId = `select data from zem_data where ${RECORDS} and json_extract(data, '$.id') = ?`;
export const byRecordType = `select count(*) from zem_data where ${RECORDS} and json_extract(data, '$.apiName') = ?`;
export const byKeyPrefix = `select data from zem_data where ${OBJECT_INFOS} and json_extract(data, '$.keyPrefix') = ?`;

export const line = (label, text) => console.log(`  ${label.padEnd(24)}${text}`);
