#include "tools/commands/balance_command.h"

#include <cstdio>
#include <memory>
#include <string>

#include "tools/commands/decimal_number.h"
#include "tools/common/body_text.h"
#include "tools/common/console.h"
#include "tools/common/endpoint.h"
#include "tools/common/exit_status.h"
#include "tools/host/balance_answer.h"

namespace {

constexpr char kHelp[] = "Ask a balance server one question and print its answer.";

constexpr char kDetails[] =
    "Gives up after about 8 seconds without a link, or 10 without an answer.\n\n"
    "Examples:\n"
    "  ftc serve --port 9002 --mode balance          # a server to ask\n"
    "  ftc balance localhost:9002 --ask 65\n\n";

struct BalanceOptions {
  std::string server;
  int ask = 0;
  bool hex = false;
};

int Ask(const BalanceOptions& options) {
  const Endpoint server = ParseEndpoint(options.server);
  ResolveEndpoint(server);  // the library does not tell an unknown host from a silent one
  CClientDataSource client;
  const auto answer = AskBalanceServer(&client, server, static_cast<unsigned char>(options.ask));
  if (!answer) {
    std::fprintf(stderr, "ftc: no answer from %s\n", ShowEndpoint(server).c_str());
    return kExitFailed;
  }
  PrintLine(ShowBody(*answer, options.hex ? BodyStyle::kHex : BodyStyle::kTextIfPrintable));
  return kExitDone;
}

}  // namespace

void AddBalanceCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("balance", kHelp);
  const auto options = std::make_shared<BalanceOptions>();
  command->add_option("SERVER", options->server, "The balance server's name or address, and port")
      ->check(FindEndpointFault)
      ->type_name("HOST:PORT")
      ->required();
  command->add_option("--ask", options->ask, "The question: one byte")
      ->transform(DecimalNumber(0, 255))
      ->required();
  command->add_flag("--hex", options->hex, "Print the answer as hex digits");
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([options, status] { *status = Ask(*options); });
}
