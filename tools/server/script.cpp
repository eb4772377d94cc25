#include "tools/server/script.h"

#include <fstream>
#include <stdexcept>

#include "tools/server/script_line.h"

namespace {

using Trigger = ScriptRule::Trigger;

bool IsRequestTrigger(Trigger trigger) {
  return trigger != Trigger::kTime && trigger != Trigger::kInterval;
}

void ParseRequest(ScriptLine* line, ScriptRule* rule) {
  rule->trigger = line->TakeIf("beginning") ? Trigger::kRequestBeginning : Trigger::kRequest;
  rule->text = line->TakeText();
}

void ParseInterval(ScriptLine* line, ScriptRule* rule) {
  rule->trigger = Trigger::kInterval;
  rule->time_ms = line->TakeTimeMs();
  if (rule->time_ms == 0) throw std::runtime_error("an interval must be longer than 0");
}

void ParseTrigger(ScriptLine* line, ScriptRule* rule) {
  if (line->TakeIf("every")) {
    ParseInterval(line, rule);
  } else if (line->TakeIf("after")) {
    rule->time_ms = line->TakeTimeMs();
  } else if (!line->TakeIf("on")) {
    line->Refuse("'on', 'after', 'every' or 'no heartbeats'");
  } else if (line->TakeIf("any")) {
    line->Take("request");
    rule->trigger = Trigger::kAnyRequest;
  } else if (line->TakeIf("request")) {
    ParseRequest(line, rule);
  } else if (!line->TakeIf("link")) {
    line->Refuse("'link', 'request' or 'any request'");
  }
}

void ParseBody(ScriptLine* line, bool has_request, ScriptAct* act) {
  act->kind = ScriptAct::Kind::kSendText;
  if (line->TakeIf("damaged")) act->checksum = Checksum::kWrong;
  if (line->IsNumber()) {
    act->text.assign(static_cast<std::size_t>(line->TakeNumber()), '.');
    if (!line->TakeIf("byte")) line->Take("bytes");
  } else if (has_request && line->TakeIf("request")) {
    act->kind = ScriptAct::Kind::kSendRequest;
  } else {
    act->text = line->TakeText();
  }
}

ScriptAct ParseAct(ScriptLine* line, bool has_request) {
  ScriptAct act;
  if (line->TakeIf("after")) act.delay_ms = line->TakeTimeMs();
  if (line->TakeIf("close")) {
    act.kind = ScriptAct::Kind::kClose;
  } else if (line->TakeIf("send") || (has_request && line->TakeIf("answer"))) {
    ParseBody(line, has_request, &act);
  } else if (!line->TakeIf("ignore")) {
    line->Refuse(has_request ? "'answer', 'send', 'close' or 'ignore'"
                             : "'send', 'close' or 'ignore'");
  }
  return act;
}

ScriptRule ParseRule(ScriptLine* line) {
  ScriptRule rule;
  ParseTrigger(line, &rule);
  line->Take(",");
  do {
    rule.acts.push_back(ParseAct(line, IsRequestTrigger(rule.trigger)));
  } while (line->TakeIf(";"));
  return rule;
}

void ParseLine(const std::string& text, Script* script) {
  ScriptLine line(text);
  if (line.IsAtEnd()) return;
  if (line.TakeIf("no")) {
    line.Take("heartbeats");
    script->heartbeats = false;
  } else {
    script->rules.push_back(ParseRule(&line));
  }
  if (!line.IsAtEnd()) line.Refuse("the end of the line");
}

}  // namespace

const char kScriptHelp[] =
    "A script has one rule a line; '#' begins a comment:\n"
    "  on link, send \"welcome\"\n"
    "  on request \"time\", answer \"12:00\"\n"
    "  on request beginning \"buy \", answer \"ok\"; after 1500 ms send \"done\"\n"
    "  on request hex 0110, answer \"10.0.0.1:9000\"\n"
    "  on any request, answer request\n"
    "  every 500 ms, send 100 bytes\n"
    "  after 3 s, send damaged \"x\"; close\n"
    "The first rule that fits a request takes it. 'ignore' does nothing, and the line\n"
    "'no heartbeats' keeps the server quiet. Times are in ms, s or min. A text may hold \\n, \\t,\n"
    "\\\\, \\\" and \\xHH.\n";

bool ScriptRule::Takes(const std::string& request) const {
  switch (trigger) {
    case Trigger::kAnyRequest:
      return true;
    case Trigger::kRequest:
      return request == text;
    case Trigger::kRequestBeginning:
      return request.compare(0, text.size(), text) == 0;
    default:
      return false;
  }
}

Script ReadScript(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!file || (!std::getline(file, line) && !file.eof())) {
    throw std::runtime_error("cannot read '" + path + "'");
  }
  constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";  // some editors put it in front
  if (line.compare(0, 3, kByteOrderMark) == 0) line.erase(0, 3);
  Script script;
  int number = 0;
  do {
    ++number;
    try {
      ParseLine(line, &script);
    } catch (const std::runtime_error& error) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
    }
  } while (std::getline(file, line));
  if (script.rules.empty()) throw std::runtime_error("'" + path + "' holds no rule");
  return script;
}
