#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tallowick
{

// One cell: no value means SQL NULL, which is never the same as an empty string.
using Cell = std::optional<std::string>;
using Row = std::vector<Cell>;

// The rows of a result, shared between copies until one of them is changed. A result of
// thousands of rows passes through the session, its tab, the grid and the exports; copies
// cost a pointer instead of every cell. Reading never copies; the first change of a shared
// list takes a private copy first.
class RowList
{
public:
    using value_type = Row;
    using size_type = std::size_t;
    using const_iterator = std::vector<Row>::const_iterator;

    RowList() = default;
    RowList(std::initializer_list<Row> rows)
        : m_rows(std::make_shared<std::vector<Row>>(rows))
    {
    }
    RowList(std::vector<Row> rows) // NOLINT(google-explicit-constructor): a list of rows is a RowList
        : m_rows(std::make_shared<std::vector<Row>>(std::move(rows)))
    {
    }

    std::size_t size() const { return m_rows ? m_rows->size() : 0; }
    bool empty() const { return size() == 0; }
    const Row &operator[](std::size_t index) const { return (*m_rows)[index]; }
    const Row &at(std::size_t index) const { return rows().at(index); }
    const Row &front() const { return m_rows->front(); }
    const Row &back() const { return m_rows->back(); }
    const_iterator begin() const { return rows().begin(); }
    const_iterator end() const { return rows().end(); }

    Row &operator[](std::size_t index) { return (*owned())[index]; }
    Row &at(std::size_t index) { return owned()->at(index); }
    void push_back(Row row) { owned()->push_back(std::move(row)); }
    template <typename... Args> Row &emplace_back(Args &&...args)
    {
        return owned()->emplace_back(std::forward<Args>(args)...);
    }
    void pop_back() { owned()->pop_back(); }
    void reserve(std::size_t count) { owned()->reserve(count); }
    void clear() { m_rows.reset(); }

    bool operator==(const RowList &other) const { return m_rows == other.m_rows || rows() == other.rows(); }

private:
    const std::vector<Row> &rows() const
    {
        static const std::vector<Row> none;
        return m_rows ? *m_rows : none;
    }

    // The list, private to this copy, ready to be changed.
    std::vector<Row> *owned()
    {
        if (!m_rows) {
            m_rows = std::make_shared<std::vector<Row>>();
        } else if (m_rows.use_count() > 1) {
            m_rows = std::make_shared<std::vector<Row>>(*m_rows);
        }
        return m_rows.get();
    }

    std::shared_ptr<std::vector<Row>> m_rows;
};

} // namespace tallowick
