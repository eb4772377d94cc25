#include "tools/commands/manual_page.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace {

constexpr char kExamples[] = "Examples:\n";
constexpr char kExitStatus[] = "Exit status: ";

// A line of text that roff shows as it is.
std::string Escape(const std::string& line) {
  std::string escaped = !line.empty() && (line[0] == '.' || line[0] == '\'') ? "\\&" : "";
  for (const char c : line) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else if (c == '\'') {
      escaped += "\\(aq";
    } else if (c == '"') {
      escaped += "\\(dq";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end + separator.size();
  }
  return parts;
}

bool BeginsWith(const std::string& text, const char* beginning) {
  return text.rfind(beginning, 0) == 0;
}

// The text in lines of a length that people who read the source like.
std::string Fill(const std::string& text) {
  constexpr std::size_t kLongest = 70;
  std::string page;
  std::string line;
  for (const std::string& word : Split(text, " ")) {
    if (!line.empty() && line.size() + 1 + word.size() > kLongest) {
      page += Escape(line) + "\n";
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return page + Escape(line) + "\n";
}

// Lines that begin with two spaces stay as they are, the others are filled.
std::string WriteParagraph(const std::string& paragraph) {
  std::string page;
  std::string text;
  std::string literal;
  const auto finish = [&page](std::string* part, const std::string& written) {
    if (!part->empty()) page += written;
    part->clear();
  };
  for (const std::string& line : Split(paragraph, "\n")) {
    if (BeginsWith(line, "  ")) {
      finish(&text, Fill(text));
      literal += Escape(line) + "\n";
    } else {
      finish(&literal, ".nf\n" + literal + ".fi\n");
      text += (text.empty() ? "" : " ") + line;
    }
  }
  finish(&text, Fill(text));
  finish(&literal, ".nf\n" + literal + ".fi\n");
  return page;
}

// The paragraphs but those of the sections at the end of the page.
std::string WriteDetails(const CommandFacts& command) {
  std::string page;
  for (const std::string& paragraph : Split(command.details, "\n\n")) {
    if (BeginsWith(paragraph, kExamples) || BeginsWith(paragraph, kExitStatus)) continue;
    page += ".PP\n" + WriteParagraph(paragraph);
  }
  return page;
}

std::string Bold(const std::string& text) {
  return "\\fB" + Escape(text) + "\\fR";
}

std::string Italic(const std::string& text) {
  return "\\fI" + Escape(text) + "\\fR";
}

std::string WriteValue(const OptionFacts& option) {
  if (option.kind != ValueKind::kChoice) return Italic(option.value);
  std::string values;
  for (const std::string& choice : option.choices) {
    values += (values.empty() ? "" : " | ") + Bold(choice);
  }
  return values;
}

std::string WriteOption(const OptionFacts& option) {
  std::string title;
  for (const std::string& name : option.names) {
    title += (title.empty() ? "" : ", ") + (option.is_argument ? Italic(name) : Bold(name));
  }
  if (option.kind != ValueKind::kNone) title += " " + WriteValue(option);
  std::string text = option.description + ".";
  if (!option.is_argument && option.is_required) text += " Required.";
  if (!option.default_value.empty()) text += " Default: " + option.default_value + ".";
  return ".TP\n" + title + "\n" + Fill(text);
}

std::string WriteUsage(const std::string& program, const CommandFacts& command) {
  std::string usage = Bold(program + " " + command.name) + " [" + Italic("OPTIONS") + "]";
  for (const OptionFacts& option : command.options) {
    if (!option.is_argument) continue;
    usage += " " + Italic(option.names[0]) + (option.is_repeated ? "..." : "");
  }
  return usage;
}

std::string WriteCommand(const std::string& program, const CommandFacts& command) {
  std::string page = ".SS \"" + WriteUsage(program, command) + "\"\n" + Fill(command.summary);
  page += WriteDetails(command);
  for (const OptionFacts& option : command.options) page += WriteOption(option);
  return page;
}

std::string WriteExamples(const CommandFacts& command) {
  for (const std::string& paragraph : Split(command.details, "\n\n")) {
    if (!BeginsWith(paragraph, kExamples)) continue;
    return ".PP\n" + WriteParagraph(paragraph.substr(sizeof kExamples - 1));
  }
  return {};
}

std::string WriteExitStatus(const CommandFacts& program) {
  for (const std::string& paragraph : Split(program.details, "\n\n")) {
    if (!BeginsWith(paragraph, kExitStatus)) continue;
    return ".SH EXIT STATUS\n" + WriteParagraph(paragraph.substr(sizeof kExitStatus - 1));
  }
  return {};
}

// A heading stands for the mark of the first paragraph.
std::string WriteSection(const char* title, const std::string& content) {
  constexpr char kMark[] = ".PP\n";
  const std::size_t begin = BeginsWith(content, kMark) ? sizeof kMark - 1 : 0;
  return std::string(".SH ") + title + "\n" + content.substr(begin);
}

std::string WriteHead(const CommandFacts& program, const std::string& version) {
  std::string title = program.name;
  std::transform(title.begin(), title.end(), title.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  // "ftc: what it is."
  const std::string summary = program.summary.substr(program.name.size() + 2);
  return ".TH " + title + " 1 \"\" \"" + version + "\" \"User Commands\"\n" +
         WriteSection("NAME", program.name + " \\- " +
                                  Escape(summary.substr(0, summary.size() - 1)) + "\n") +
         WriteSection("SYNOPSIS", Bold(program.name) + " " + Italic("COMMAND") + " [" +
                                      Italic("ARGUMENTS") + "]\n");
}

}  // namespace

std::string MakeManualPage(const CommandFacts& program, const std::string& version) {
  std::string options;
  std::string commands;
  std::string examples;
  for (const OptionFacts& option : program.options) options += WriteOption(option);
  for (const CommandFacts& command : program.commands) {
    commands += WriteCommand(program.name, command);
    examples += WriteExamples(command);
  }
  return WriteHead(program, version) + WriteSection("DESCRIPTION", WriteDetails(program)) +
         WriteSection("OPTIONS", options) + WriteSection("COMMANDS", commands) +
         WriteSection("EXAMPLES", examples) + WriteExitStatus(program);
}
