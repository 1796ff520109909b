// What the software key makes of SQLite: values, codes, and images of whole databases.
#include "softkey/store/database.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "outcome.h"
#include "softkey/store/schema.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

TEST(DatabaseTest, each_of_sqlites_codes_has_one_of_the_keys) {
    const std::pair<int, Code> codes[] = {{SQLITE_FULL, kStateFull},
                                          {SQLITE_BUSY, kStateBusy},
                                          {SQLITE_BUSY_SNAPSHOT, kStateBusy},
                                          {SQLITE_LOCKED, kStateBusy},
                                          {SQLITE_NOMEM, kNoMemory},
                                          {SQLITE_CORRUPT, kStateDamaged},
                                          {SQLITE_NOTADB, kStateDamaged},
                                          {SQLITE_FORMAT, kStateDamaged},
                                          {SQLITE_ERROR, kStateDamaged},
                                          {SQLITE_CONSTRAINT_CHECK, kStateDamaged},
                                          {SQLITE_MISMATCH, kStateDamaged},
                                          {SQLITE_SCHEMA, kStateDamaged},
                                          {SQLITE_IOERR, kStateUnreachable},
                                          {SQLITE_IOERR_READ, kStateUnreachable},
                                          {SQLITE_IOERR_SHORT_READ, kStateDamaged},
                                          {SQLITE_IOERR_WRITE, kStateFull},
                                          {SQLITE_IOERR_SHMSIZE, kStateFull},
                                          {SQLITE_CANTOPEN, kStateUnreachable},
                                          {SQLITE_PERM, kStateUnreachable},
                                          {SQLITE_READONLY, kStateUnreachable}};
    const Database db{Bytes()};
    for (const auto& [result, code] : codes) {
        const Outcome outcome = OutcomeOf([&db, result = result] { db.Fail(result, "doing"); });
        EXPECT_EQ(outcome, Outcome(code, "softkey.db: not an error (doing)")) << result;
    }
}

TEST(DatabaseTest, values_come_back_as_they_were_bound) {
    Database db{Bytes()};
    const std::string text("a\0b", 3), none;
    const Bytes bytes = {0, 1, 2}, nothing;
    Statement row = db.Prepare("SELECT ?, ?, ?, ?, ?, NULL");
    row.Bind(std::int64_t{1} << 40).Bind(text).Bind(none).Bind(bytes).Bind(nothing);
    ASSERT_TRUE(row.Step());
    EXPECT_EQ(row.Int(0), std::int64_t{1} << 40);
    EXPECT_EQ(row.Text(1), text);
    EXPECT_EQ(row.Text(2), "");
    EXPECT_EQ(row.Blob(3), bytes);
    EXPECT_EQ(row.Blob(4), nothing);
    EXPECT_EQ(row.Text(5), "");
    EXPECT_EQ(row.Blob(5), nothing);
    EXPECT_FALSE(row.Step());
}

TEST(DatabaseTest, no_text_and_no_bytes_are_values_and_a_statement_forgets_them) {
    Database db{Bytes()};
    const std::string text;
    const Bytes bytes;
    const auto types = [&db](bool bind) {
        Statement row = db.Prepare("SELECT typeof(?), typeof(?)");
        if (bind) row.Bind(std::string()).Bind(Bytes());
        EXPECT_TRUE(row.Step());
        return row.Text(0) + " " + row.Text(1);
    };
    EXPECT_EQ(types(true), "text blob");
    EXPECT_EQ(types(false), "null null");
}

TEST(DatabaseTest, a_value_too_many_is_refused_with_the_statement) {
    Database db{Bytes()};
    const std::string text;
    const auto refused = [&db](auto value) {
        return OutcomeOf([&] {
            const auto bound = value;
            db.Prepare("SELECT 1").Bind(bound);
        });
    };
    const Outcome outcome(kStateUnreachable, "softkey.db: column index out of range (SELECT 1)");
    EXPECT_EQ(refused(std::int64_t{1}), outcome);
    EXPECT_EQ(refused(std::string("x")), outcome);
    EXPECT_EQ(refused(Bytes{1}), outcome);
}

TEST(DatabaseTest, what_fails_is_told_with_what_it_did) {
    Database db{Bytes()};
    db.Execute("CREATE TABLE t(n INTEGER CHECK(n > 0))");
    EXPECT_EQ(OutcomeOf([&] { db.Execute("bad"); }),
              Outcome(kStateDamaged, "softkey.db: near \"bad\": syntax error (bad)"));
    EXPECT_EQ(OutcomeOf([&] { db.Prepare("worse"); }),
              Outcome(kStateDamaged, "softkey.db: near \"worse\": syntax error (worse)"));
    EXPECT_EQ(OutcomeOf([&] { db.Prepare("INSERT INTO t VALUES(0)").Run(); }),
              Outcome(kStateDamaged,
                      "softkey.db: CHECK constraint failed: n > 0 (INSERT INTO t VALUES(0))"));
}

TEST(DatabaseTest, one_in_memory_is_strict_and_keeps_nothing_that_was_deleted) {
    Database db{Bytes()};
    EXPECT_FALSE(db.InTransaction());
    db.Execute("CREATE TABLE p(id INTEGER PRIMARY KEY)");
    db.Execute("CREATE TABLE c(t TEXT, p REFERENCES p(id) ON DELETE CASCADE)");
    db.Execute("INSERT INTO p VALUES(1); INSERT INTO c VALUES('find-me', 1)");
    const auto holds = [&db] {
        const Bytes image = db.Image();
        return std::string(image.begin(), image.end()).find("find-me") != std::string::npos;
    };
    EXPECT_TRUE(holds());
    db.Execute("DELETE FROM p");
    EXPECT_EQ(db.Changes(), 1);
    EXPECT_FALSE(holds());
    EXPECT_EQ(OutcomeOf([&] { db.Execute("INSERT INTO c VALUES('x', 2)"); }).first, kStateDamaged);
    EXPECT_EQ(OutcomeOf([&] {
                  db.Execute("PRAGMA writable_schema = ON; DELETE FROM sqlite_schema");
              }).first,
              kStateDamaged)
        << "its tables can be spoilt by a statement";
}

// Of one page, which is the smallest there is.
TEST(DatabaseTest, an_image_is_read_without_a_log_whatever_it_says) {
    Bytes image;
    {
        Database db{Bytes()};
        db.Execute("PRAGMA page_size = 512; PRAGMA user_version = 7");
        image = db.Image();
    }
    ASSERT_EQ(image.size(), 512U);
    EXPECT_EQ(image[kJournalVersions], 1);
    image[kJournalVersions] = image[kJournalVersions + 1] = 2;
    Database db(image);
    EXPECT_EQ(SchemaVersion(db), 7);
    EXPECT_EQ(db.Image()[kJournalVersions + 1], 1);
    for (const std::size_t size : {1U, 18U, 19U, 20U, 511U}) {
        Database none(Bytes(size, 2));
        EXPECT_EQ(OutcomeOf([&] { SchemaVersion(none); }).first, kStateDamaged) << size;
    }
}

TEST(DatabaseTest, an_image_that_cannot_be_had_is_told) {
    const TemporaryFolder folder;
    for (const std::string& text : {std::string(600, 'x'), std::string()}) {
        const std::string path = folder.Write("softkey.db", text);
        EXPECT_EQ(OutcomeOf([&] { Database(path).Image(); }),
                  Outcome(kStateDamaged, path + ": cannot be read"));
    }
    Database db{Bytes()};
    db.Execute("CREATE TABLE t AS SELECT zeroblob(4000000)");
    sqlite3_hard_heap_limit64(sqlite3_memory_used() + 1000000);
    EXPECT_EQ(OutcomeOf([&] { db.Image(); }), Outcome(kNoMemory, "softkey.db: cannot be read"));
    sqlite3_hard_heap_limit64(0);
}

TEST(DatabaseTest, gives_back_its_memory) {
    Database once{FreshImage()};
    const auto before = sqlite3_memory_used();
    ASSERT_GT(before, 0);
    for (int i = 0; i < 3; ++i) {
        Database db{FreshImage()};
        EXPECT_EQ(SchemaVersion(db), kSchemaVersion);
        db.Prepare("SELECT count(*) FROM keys").Run();
        EXPECT_GT(sqlite3_memory_used(), before);
    }
    EXPECT_EQ(OutcomeOf([] { Database db{Bytes(600, 'x')}; }).first, kOk)
        << "it is looked at later";
    EXPECT_EQ(OutcomeOf([] { Database db(std::string("/none/softkey.db")); }),
              Outcome(kStateUnreachable, "/none/softkey.db: unable to open database file"));
    EXPECT_EQ(sqlite3_memory_used(), before);
}

}  // namespace
