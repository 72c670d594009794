/// What a driver for the encrypted store needs: a statement's columns and rows.
export function query(sql, parameters = []) {
    return new Promise((resolve, reject) => {
        ZemSqliteStore.query(sql, parameters, resolve, (message) => reject(new Error(message)));
    });
}
