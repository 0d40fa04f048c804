// What the history asks of a database. Each is a module of its own, loaded when it is asked for, so that a program that
// keeps no history pays for none.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// Every member raises `std::runtime_error` with the database's own words.
class Database {
public:
    /// Columns count from 0.
    class Row {
    public:
        virtual ~Row() = default;
        virtual std::string text(int column) const = 0;
        /// NaN for null.
        virtual double number(int column) const = 0;
    };
    using OnRow = std::function<void(const Row&)>;

    virtual ~Database() = default;
    /// Runs SQL that all databases here understand; without parameters and `on_row` several statements. Parameters are
    /// $1, $2 ... in the order of their first use.
    virtual void run(const std::string& sql, const std::vector<std::string>& parameters = {},
                     const OnRow& on_row = {}) = 0;
    /// Begins a transaction that waits for those of other writers.
    virtual void begin() = 0;
    /// How a column is declared whose values the database gives.
    virtual const char* identity_type() const = 0;
    /// SQL that gives a 1 where there is a table named $1.
    virtual const char* table_query() const = 0;
};

}  // namespace korvane

/// The entry of a module. A file that does not exist is made only where `make` is true.
extern "C" __attribute__((visibility("default"))) korvane::Database* korvane_open_database(const std::string& where,
                                                                                           bool make);
