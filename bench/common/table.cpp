#include "bench/common/table.h"

#include <cstddef>
#include <cstdio>
#include <utility>

namespace bench {

Table::Table(Form form, std::string name, std::vector<Column> columns)
    : m_form(form), m_name(std::move(name)), m_columns(std::move(columns)) {
  if (m_form == Form::kMarkdown) PrintHead();
}

void Table::PrintHead() const {
  std::string titles = "|";
  std::string rule = "|";
  for (const Column& column : m_columns) {
    titles += " " + column.title + " |";
    rule += column.decimals == kText ? "---|" : "--:|";
  }
  std::printf("%s\n%s\n", titles.c_str(), rule.c_str());
  std::fflush(stdout);
}

void Table::AddRow(const std::vector<Cell>& cells) const {
  const bool json = m_form == Form::kJson;
  std::string row = json ? "{\"table\": \"" + m_name + "\"" : "|";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string text = GetText(i, cells[i]);
    row += json ? ", \"" + m_columns[i].title + "\": " + text : " " + text + " |";
  }
  std::printf("%s%s\n", row.c_str(), json ? "}" : "");
  std::fflush(stdout);
}

std::string Table::GetText(std::size_t column, const Cell& cell) const {
  if (const auto* const text = std::get_if<std::string>(&cell)) {
    return m_form == Form::kJson ? "\"" + *text + "\"" : *text;
  }
  char number[64];
  std::snprintf(number, sizeof number, "%.*f", m_columns[column].decimals, std::get<double>(cell));
  return number;
}

}  // namespace bench
