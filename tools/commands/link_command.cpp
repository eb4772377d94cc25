#include "tools/commands/link_command.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/decimal_number.h"
#include "tools/common/endpoint.h"
#include "tools/common/exit_status.h"
#include "tools/common/interrupt.h"
#include "tools/common/standard_streams.h"
#include "tools/host/link_session.h"
#include "tools/terminal/input_lines.h"
#include "tools/terminal/json_link_printer.h"
#include "tools/terminal/link_printer.h"
#include "tools/terminal/live_view.h"

namespace {

constexpr int kLongestWaitSec = 86400;

constexpr char kHelp[] = "Keep a link to one of up to five servers, as an application does.";

constexpr char kDetails[] =
    "Sends each line of the standard input as a request. Lines wait while no link is up. Ends at\n"
    "the end of the input, once as many packages came as lines were sent, or at Ctrl-C.\n\n"
    "On a terminal a live view shows the state of the link, figures for both directions and what\n"
    "happened last; Page Up and Page Down move through that. Rates are those of the last second,\n"
    "graphs show the bytes of the last minute. Elsewhere, or with --plain, each link event and\n"
    "package is a line with the time of day.\n\n"
    "Diagnostics go to standard error.\n\n";

constexpr char kJsonDetails[] =
    "With --json each line is an object with time (ISO 8601, UTC), event and server:\n"
    "  connecting, up          the server whose turn it is, and the link to it\n"
    "  connect_failed, closed  an attempt, a link that ended\n"
    "  request, package        bytes, and text or hex: the body\n"
    "  end                     links, losses, failed_connects, requests,\n"
    "                          request_bytes, packages, package_bytes,\n"
    "                          status: the exit status, fault: the reason\n"
    "A body is hex when it is not printable UTF-8.\n\n"
    "Examples:\n"
    "  ftc link 127.0.0.1:9000                       # on a terminal: the live view\n"
    "  ftc link 10.0.0.1:9000 10.0.0.2:9000          # two servers, tried in turn\n"
    "  echo hello | ftc link 127.0.0.1:9000          # one request, and its answer\n"
    "  ftc link --json 127.0.0.1:9000 </dev/null     # for programs\n\n";

struct LinkArguments {
  std::vector<std::string> servers;
  bool hex = false;
  bool plain = false;
  bool json = false;
  LinkOptions options;

  BodyStyle Style() const { return hex ? BodyStyle::kHex : BodyStyle::kTextIfPrintable; }
};

LinkOptions MakeOptions(const LinkArguments& arguments) {
  LinkOptions options = arguments.options;
  for (const std::string& server : arguments.servers) {
    options.servers.push_back(ParseEndpoint(server));
  }
  return options;
}

int LinkWithStandardInput(const LinkArguments& arguments, LinkObserver* observer) {
  auto lines = std::make_unique<InputLines>();
  const int status = LinkSession(MakeOptions(arguments), lines.get(), observer).Run();
  if (!lines->HasEnded()) {
    // The reader sits in a read of the standard input that no portable means can end: it cannot be
    // joined, and flushing all streams would wait for it. The client has ended by now.
    std::fflush(stdout);
    std::_Exit(status);
  }
  return status;
}

int LinkOnScreen(const LinkArguments& arguments, std::unique_ptr<Screen> screen) {
  const bool keyboard = IsTerminal(StandardStream::kInput);
  LiveView view(std::move(screen), arguments.servers.size(), arguments.Style(), keyboard);
  if (!keyboard) return LinkWithStandardInput(arguments, &view);
  return LinkSession(MakeOptions(arguments), view.GetTypedLines(), &view).Run();
}

int Link(const LinkArguments& arguments) {
  CatchInterrupts();
  if (arguments.json) {
    JsonLinkPrinter printer(arguments.hex);
    return LinkWithStandardInput(arguments, &printer);
  }
  if (!arguments.plain && IsTerminal(StandardStream::kOutput)) {
    if (auto screen = OpenScreen()) return LinkOnScreen(arguments, std::move(screen));
  }
  LinkPrinter printer(arguments.Style());
  return LinkWithStandardInput(arguments, &printer);
}

void AddOutputOptions(CLI::App* command, LinkArguments* arguments) {
  command->add_flag("--hex", arguments->hex, "Show all bodies as hex digits");
  CLI::Option* const plain =
      command->add_flag("--plain", arguments->plain, "Print lines on a terminal too");
  command->add_flag("--json", arguments->json, "Print one JSON object a line")->excludes(plain);
}

void AddWaitOptions(CLI::App* command, LinkOptions* options) {
  command
      ->add_option("--wait", options->answer_wait_sec,
                   "Seconds that answers may take after the end of the input; status 1 when\n"
                   "fewer packages than lines came. 0: does not wait")
      ->transform(DecimalNumber(0, kLongestWaitSec))
      ->capture_default_str();
  command
      ->add_option("--connect-wait", options->connect_wait_sec,
                   "Seconds that a link may take to come up; status 1 when none does")
      ->transform(DecimalNumber(1, kLongestWaitSec))
      ->capture_default_str();
}

}  // namespace

void AddLinkCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("link", kHelp);
  const auto arguments = std::make_shared<LinkArguments>();
  command
      ->add_option("SERVER", arguments->servers,
                   "1 to 5 servers with dotted addresses, in the order in which they are tried")
      ->check(FindDottedEndpointFault)
      ->type_name("HOST:PORT")
      ->expected(1, 5)
      ->required();
  AddOutputOptions(command, arguments.get());
  AddWaitOptions(command, &arguments->options);
  command->footer(std::string(kDetails) + kJsonDetails + kExitStatusHelp);
  command->callback([arguments, status] { *status = Link(*arguments); });
}
