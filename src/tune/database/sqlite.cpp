// Histories in a file, by SQLite.
#include <sqlite3.h>

#include <filesystem>
#include <limits>
#include <stdexcept>

#include "tune/database/database.h"
#ifdef _WIN32
#include <windows.h>
#else
#include <sys/vfs.h>
#endif

namespace korvane {

namespace {

constexpr int busy_timeout_ms = 30'000;

// The write-ahead log needs memory that all processes share, which shares of a network have not.
#ifdef _WIN32

bool is_local(const std::filesystem::path& file) {
    const UINT type = GetDriveTypeW(std::filesystem::absolute(file).root_path().c_str());
    return type == DRIVE_FIXED || type == DRIVE_REMOVABLE || type == DRIVE_RAMDISK;
}

#else

bool is_local(const std::filesystem::path& file) {
    struct statfs status {};
    const auto folder = std::filesystem::absolute(file).parent_path();
    if (statfs(folder.c_str(), &status) != 0) return false;
    // NFS, SMB, CIFS, SMB2, Plan 9, FUSE, Ceph, AFS: statfs(2).
    for (const unsigned long network :
         {0x6969UL, 0x517BUL, 0xFF534D42UL, 0xFE534D42UL, 0x01021997UL, 0x65735546UL, 0x00C36400UL, 0x5346414FUL})
        if (static_cast<std::uint32_t>(status.f_type) == network) return false;
    return true;
}

#endif

class SqliteRow final : public Database::Row {
public:
    explicit SqliteRow(sqlite3_stmt* statement) : statement_(statement) {}
    std::string text(int column) const override {
        const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
        return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))) : "";
    }
    double number(int column) const override {
        if (sqlite3_column_type(statement_, column) == SQLITE_NULL) return std::numeric_limits<double>::quiet_NaN();
        return sqlite3_column_double(statement_, column);
    }

private:
    sqlite3_stmt* statement_;
};

class Sqlite final : public Database {
public:
    Sqlite(const std::string& path, bool make) {
        sqlite3* opened = nullptr;
        const int code =
            sqlite3_open_v2(path.c_str(), &opened,
                            SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (make ? SQLITE_OPEN_CREATE : 0), nullptr);
        handle_.reset(opened);
        check(code);
        sqlite3_busy_timeout(opened, busy_timeout_ms);
        // Where another process is about to do the same, or nothing may be written, what there is will do.
        if (make && is_local(std::filesystem::path(std::u8string(path.begin(), path.end()))))
            sqlite3_exec(opened, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    }

    void run(const std::string& sql, const std::vector<std::string>& parameters, const OnRow& on_row) override {
        if (parameters.empty() && !on_row)
            return check(sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr));
        sqlite3_stmt* prepared = nullptr;
        check(sqlite3_prepare_v2(handle_.get(), sql.c_str(), -1, &prepared, nullptr));
        const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(prepared, &sqlite3_finalize);
        for (std::size_t i = 0; i < parameters.size(); ++i)
            check(sqlite3_bind_text64(prepared, static_cast<int>(i) + 1, parameters[i].data(), parameters[i].size(),
                                      SQLITE_STATIC, SQLITE_UTF8));
        int code = SQLITE_ROW;
        while ((code = sqlite3_step(prepared)) == SQLITE_ROW)
            if (on_row) on_row(SqliteRow(prepared));
        if (code != SQLITE_DONE) check(code);
    }

    void begin() override { run("BEGIN IMMEDIATE", {}, {}); }
    const char* identity_type() const override { return "INTEGER PRIMARY KEY AUTOINCREMENT"; }
    const char* table_query() const override { return "SELECT 1 FROM sqlite_master WHERE name = $1"; }

private:
    void check(int code) const {
        if (code == SQLITE_OK) return;
        throw std::runtime_error(handle_ ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(code));
    }

    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> handle_;
};

}  // namespace

}  // namespace korvane

korvane::Database* korvane_open_database(const std::string& where, bool make) {
    return new korvane::Sqlite(where, make);
}
