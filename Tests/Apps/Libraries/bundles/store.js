/// Promises a statement's columns and rows: a driver for the encrypted store needs no more.
export function query(sql, parameters = []) {
    return new Promise((resolve, reject) => {
        ZemSqliteStore.query(sql, parameters, resolve, (message) => reject(new Error(message)));
    });
}
