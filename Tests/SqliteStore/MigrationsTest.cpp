#include <zem/SqliteStore/Migrations.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>

#include <gtest/gtest.h>

#include <SqliteStore/Expect.h>
#include <SqliteStore/RawDatabase.h>
#include <Support/TemporaryFolder.h>
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

// The texts stand here once more, each line as it is written to the file: a file in the field has
// been through exactly these.

namespace {

using namespace zem;
using test::RawDatabase;
using Texts = std::vector<std::string>;

const Texts& textsOf240000() {
    static const Texts texts{
        "-- The primary table for data in the DEFAULT segment\n"
        "CREATE TABLE zem_data (\n"
        "  key TEXT PRIMARY KEY,\n"
        "  data TEXT NOT NULL,\n"
        "  metadata JSON\n"
        ");",
        "-- The primary table for data in segments other than DEFAULT\n"
        "-- and which do not have a dedicated table\n"
        "CREATE TABLE zem_internal (\n"
        "  namespace TEXT NOT NULL,\n"
        "  key TEXT NOT NULL,\n"
        "  data TEXT NOT NULL,\n"
        "  metadata JSON,\n"
        "  PRIMARY KEY (namespace, key)\n"
        ");",
        "-- The table for draft actions created by the draft-aware mobile environment\n"
        "CREATE TABLE zem_env_drafts (\n"
        "  key TEXT PRIMARY KEY,\n"
        "  data TEXT NOT NULL\n"
        ");",
        "-- The table for draft local to server id mappings\n"
        "CREATE TABLE zem_env_draft_id_map (\n"
        "  key TEXT PRIMARY KEY,\n"
        "  data TEXT NOT NULL\n"
        ");",
        "CREATE INDEX idx_zem_data_rimvo_record_id\n"
        "ON zem_data (json_extract(data, '$.id'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::RecordRepresentation:%'\n"
        "  AND json_extract(data, '$.id') IS NOT NULL;",
        "CREATE INDEX idx_zem_data_rimvo_record_apiname\n"
        "ON zem_data (json_extract(data, '$.apiName'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::RecordRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') IS NOT NULL;",
        "CREATE INDEX idx_zem_data_rimvo_objectinfo_apiname\n"
        "ON zem_data (json_extract(data, '$.apiName'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::ObjectInfoRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') IS NOT NULL;",
        "CREATE INDEX idx_zem_data_rimvo_objectinfo_keyprefix\n"
        "ON zem_data (json_extract(data, '$.keyPrefix'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::ObjectInfoRepresentation:%'\n"
        "  AND json_extract(data, '$.keyPrefix') IS NOT NULL;",
        "CREATE INDEX idx_zem_data_rimvo_serviceresource_relatedrecordid\n"
        "ON zem_data (json_extract(data, '$.fields.RelatedRecordId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::ObjectInfoRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'ServiceResource';",
        "CREATE INDEX idx_zem_data_rimvo_assigned_resource_service_appointment_id\n"
        "ON zem_data(json_extract(data, '$.fields.ServiceAppointmentId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::ObjectInfoRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'AssignedResource';",
        "CREATE INDEX idx_zem_data_rimvo_assigned_resource_service_resource_id\n"
        "ON zem_data(json_extract(data, '$.fields.ServiceResourceId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::ObjectInfoRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'AssignedResource';"};
    return texts;
}

const Texts& textsOf244000() {
    static const Texts texts{
        "DROP INDEX IF EXISTS idx_zem_data_rimvo_serviceresource_relatedrecordid;",
        "DROP INDEX IF EXISTS idx_zem_data_rimvo_assigned_resource_service_appointment_id;",
        "DROP INDEX IF EXISTS idx_zem_data_rimvo_assigned_resource_service_resource_id;",
        "CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_serviceresource_relatedrecordid\n"
        "ON zem_data (json_extract(data, '$.fields.RelatedRecordId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::RecordRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'ServiceResource';",
        "CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_assignedresource_serviceappointmentid\n"
        "ON zem_data(json_extract(data, '$.fields.ServiceAppointmentId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::RecordRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'AssignedResource';",
        "CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_assignedresource_serviceresourceid\n"
        "ON zem_data(json_extract(data, '$.fields.ServiceResourceId.value'))\n"
        "WHERE\n"
        "  key LIKE 'Rimvo::RecordRepresentation:%'\n"
        "  AND json_extract(data, '$.apiName') = 'AssignedResource';"};
    return texts;
}

/// The file's schema table once all `texts` have run: it keeps a statement from its name on,
/// without comments before it, IF NOT EXISTS and the semicolon.
Texts asKept(const Texts& texts) {
    Texts kept;
    for (std::string text : texts) {
        if (text.starts_with("DROP")) {
            continue;
        }
        text.erase(0, text.find("CREATE"));
        text.pop_back();
        const std::string condition = "IF NOT EXISTS ";
        if (const std::size_t at = text.find(condition); at != std::string::npos) {
            text.erase(at, condition.size());
        }
        kept.push_back(std::move(text));
    }
    return kept;
}

Texts range(const Texts& texts, std::size_t from, std::size_t to) {
    return Texts(texts.begin() + static_cast<std::ptrdiff_t>(from),
                 texts.begin() + static_cast<std::ptrdiff_t>(to));
}

Texts joined(Texts first, const Texts& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Texts sorted(Texts texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

/// The four tables, the four indexes that stayed and the three that replaced others.
Texts lastSchema() {
    return sorted(asKept(joined(range(textsOf240000(), 0, 8), textsOf244000())));
}

class MigrationsTest : public testing::Test {
  protected:
    static SQLiteConnection::Options options(const std::filesystem::path& folder,
                                             SQLiteConnection::Migrations migrations) {
        return {.storage = SQLiteStorage::file(folder),
                .migrations = std::move(migrations),
                .setUpActions = {}};
    }
    void open(SQLiteConnection::Migrations migrations) {
        SQLiteConnection connection(options(folder.path(), std::move(migrations)));
    }
    std::string version() { return RawDatabase(file).column("PRAGMA user_version").at(0); }
    Texts schema() {
        return RawDatabase(file).column(
            "select sql from sqlite_master where sql is not null order by rowid");
    }
    Texts names(const std::string& type) {
        return RawDatabase(file).column("select name from sqlite_master where type = '" + type +
                                        "' and sql is not null order by name");
    }

    const test::TemporaryFolder folder;
    const std::filesystem::path file = folder / "zem.db";
};

TEST_F(MigrationsTest, AreTheseTextsByteForByte) {
    EXPECT_EQ(MIGRATIONS(),
              (SQLiteConnection::Migrations{{240000, textsOf240000()}, {244000, textsOf244000()}}));
    EXPECT_EQ(textsOf240000().size(), 11u);
    EXPECT_EQ(textsOf244000().size(), 6u);
}

TEST_F(MigrationsTest, AreBuiltOnce) {
    EXPECT_EQ(&MIGRATIONS(), &MIGRATIONS());
}

TEST_F(MigrationsTest, BringANewFileToTheLastVersion) {
    open(MIGRATIONS());

    EXPECT_EQ(version(), "244000");
    EXPECT_EQ(names("table"),
              (Texts{"zem_data", "zem_env_draft_id_map", "zem_env_drafts", "zem_internal"}));
    EXPECT_EQ(
        names("index"),
        (Texts{"idx_zem_data_rimvo_assignedresource_serviceappointmentid",
               "idx_zem_data_rimvo_assignedresource_serviceresourceid",
               "idx_zem_data_rimvo_objectinfo_apiname", "idx_zem_data_rimvo_objectinfo_keyprefix",
               "idx_zem_data_rimvo_record_apiname", "idx_zem_data_rimvo_record_id",
               "idx_zem_data_rimvo_serviceresource_relatedrecordid"}));
    EXPECT_EQ(sorted(schema()), lastSchema());
}

TEST_F(MigrationsTest, RepairAFileOf240000) {
    open({{240000, textsOf240000()}});
    EXPECT_EQ(version(), "240000");
    EXPECT_EQ(schema(), asKept(textsOf240000()));
    RawDatabase(file).execute("insert into zem_data values ('k', '{\"id\":\"1\"}', null)");

    open(MIGRATIONS());

    EXPECT_EQ(version(), "244000");
    EXPECT_EQ(sorted(schema()), lastSchema());
    EXPECT_EQ(RawDatabase(file).column("select key from zem_data"), Texts{"k"});
}

TEST_F(MigrationsTest, RunNothingOnAFileOfTheLastVersion) {
    open(MIGRATIONS());
    RawDatabase(file).execute("drop index idx_zem_data_rimvo_record_id");
    const Texts before = schema();
    open(MIGRATIONS());
    EXPECT_EQ(schema(), before);
    EXPECT_EQ(version(), "244000");
}

TEST_F(MigrationsTest, RunNothingOnAFileOfANewerVersion) {
    RawDatabase(file).execute("PRAGMA user_version = 244001");
    open(MIGRATIONS());
    EXPECT_EQ(version(), "244001");
    EXPECT_EQ(schema(), Texts{});
}

TEST_F(MigrationsTest, RunInAscendingOrder) {
    open({{10, {"insert into t values ('10a')", "insert into t values ('10b')"}},
          {9, {"create table t (step)", "insert into t values ('9')"}},
          {100, {"insert into t values ('100')"}}});
    EXPECT_EQ(version(), "100");
    EXPECT_EQ(RawDatabase(file).column("select step from t order by rowid"),
              (Texts{"9", "10a", "10b", "100"}));
}

TEST_F(MigrationsTest, AFailureKeepsFinishedVersionsAndTheFailedOnesStatements) {
    const auto fails = [&](const std::string& text) {
        return test::thrownCode([&] {
            open({{1, {"create table t (step)"}},
                  {2, {"insert into t values ('2a')", text, "insert into t values ('2c')"}},
                  {3, {"insert into t values ('3')"}}});
        });
    };
    const auto steps = [&] {
        return RawDatabase(file).column("select step from t order by rowid");
    };

    EXPECT_EQ(fails("insert into missing values (1)"), 1);
    EXPECT_EQ(version(), "1");
    EXPECT_EQ(steps(), Texts{"2a"});

    // The next open resumes at the failed version, and runs all of it.
    EXPECT_EQ(fails("insert into t values ('2b')"), std::nullopt);
    EXPECT_EQ(version(), "3");
    EXPECT_EQ(steps(), (Texts{"2a", "2a", "2b", "2c", "3"}));
}

TEST_F(MigrationsTest, A240000LeftHalfDoneFailsOnTheTableThatIsThere) {
    for (std::size_t done = 1; done <= textsOf240000().size(); ++done) {
        {
            RawDatabase left(file);
            left.execute(textsOf240000()[done - 1]);
        }
        EXPECT_EQ(test::thrownCode([&] { open(MIGRATIONS()); }), 1) << done << " statements done";
        EXPECT_EQ(version(), "0") << done << " statements done";
        EXPECT_EQ(schema(), asKept(range(textsOf240000(), 0, done)));
    }
}

TEST_F(MigrationsTest, A244000LeftHalfDoneIsFinished) {
    for (std::size_t done = 0; done <= textsOf244000().size(); ++done) {
        std::filesystem::remove(file);
        open({{240000, textsOf240000()}});
        for (std::size_t index = 0; index < done; ++index) {
            RawDatabase(file).execute(textsOf244000()[index]);
        }

        open(MIGRATIONS());

        EXPECT_EQ(version(), "244000") << done << " statements done";
        EXPECT_EQ(sorted(schema()), lastSchema()) << done << " statements done";
    }
}

} // namespace
