#pragma once

#include <string>
#include <variant>
#include <vector>

namespace bench {

// Results on the standard output, a row as soon as it is known: a Markdown table, or a line of JSON
// for each row.
class Table {
 public:
  enum class Form { kMarkdown, kJson };

  static constexpr int kText = -1;

  struct Column {
    std::string title;
    int decimals = 0;  // or kText
  };

  using Cell = std::variant<double, std::string>;

  // Prints the head of a Markdown table. In JSON the name and the titles are the keys.
  Table(Form form, std::string name, std::vector<Column> columns);

  // One cell for each column.
  void AddRow(const std::vector<Cell>& cells) const;

 private:
  void PrintHead() const;
  std::string GetText(std::size_t column, const Cell& cell) const;

  const Form m_form;
  const std::string m_name;
  const std::vector<Column> m_columns;
};

}  // namespace bench
