// Finds what an earlier run of load.js stored.

import { byRecordId, byRecordType, line, query, value } from "./store.js";

const main = async () => {
  line("found again", `${await value("select count(*) from zem_data")} entries`);
  line("  of them countries", await value(byRecordType, ["Country"]));
  const { rows } = await query(byRecordId, ["0COISL"]);
  const { Name, Flag } = JSON.parse(rows[0][0]).fields;
  line("record 0COISL", `${Name.value} ${Flag.value}`);
  line("schema version", await value("pragma user_version"));
};

main();
