// Histories on a PostgreSQL server, by libpq.
#include <libpq-fe.h>

#include <charconv>
#include <limits>
#include <stdexcept>

#include "tune/database/database.h"

namespace korvane {

namespace {

using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

class PostgresqlRow final : public Database::Row {
public:
    PostgresqlRow(const PGresult* result, int row) : result_(result), row_(row) {}
    std::string text(int column) const override { return PQgetvalue(result_, row_, column); }
    double number(int column) const override {
        double value = std::numeric_limits<double>::quiet_NaN();
        const char* const text = PQgetvalue(result_, row_, column);
        std::from_chars(text, text + PQgetlength(result_, row_, column), value);
        return value;
    }

private:
    const PGresult* result_;
    int row_;
};

class Postgresql final : public Database {
public:
    explicit Postgresql(const std::string& url) : connection_(PQconnectdb(url.c_str()), &PQfinish) {
        if (PQstatus(connection_.get()) != CONNECTION_OK) throw std::runtime_error(fault());
        PQsetClientEncoding(connection_.get(), "UTF8");
        PQsetNoticeProcessor(
            connection_.get(), [](void*, const char*) {}, nullptr);
    }

    void run(const std::string& sql, const std::vector<std::string>& parameters, const OnRow& on_row) override {
        std::vector<const char*> values;
        for (const std::string& parameter : parameters) values.push_back(parameter.c_str());
        const Result result(values.empty()
                                ? PQexec(connection_.get(), sql.c_str())
                                : PQexecParams(connection_.get(), sql.c_str(), static_cast<int>(values.size()), nullptr,
                                               values.data(), nullptr, nullptr, 0),
                            &PQclear);
        const ExecStatusType status = PQresultStatus(result.get());
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) throw std::runtime_error(fault());
        for (int row = 0; on_row && row < PQntuples(result.get()); ++row) on_row(PostgresqlRow(result.get(), row));
    }

    // Two programs that make the same tables at the same time would fail; the number is this history's own.
    void begin() override { run("BEGIN; SELECT pg_advisory_xact_lock(7310150)", {}, {}); }
    const char* identity_type() const override { return "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY"; }
    const char* table_query() const override { return "SELECT 1 WHERE to_regclass($1) IS NOT NULL"; }

private:
    std::string fault() const {
        std::string text = PQerrorMessage(connection_.get());
        while (text.ends_with('\n')) text.pop_back();
        return text;
    }

    std::unique_ptr<PGconn, decltype(&PQfinish)> connection_;
};

}  // namespace

}  // namespace korvane

korvane::Database* korvane_open_database(const std::string& where, bool) {
    return new korvane::Postgresql(where);
}
