#include "tools/commands/link_command.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands/decimal_number.h"
#include "tools/commands/endpoint.h"
#include "tools/commands/exit_status.h"
#include "tools/host/link_session.h"
#include "tools/terminal/interrupt.h"

namespace {

constexpr int kLongestWaitSec = 86400;

constexpr char kHelp[] = "Keep a link to one of up to five servers, as an application does.";

constexpr char kDetails[] =
    "Sends each line of the standard input as a request and prints every link event and package\n"
    "with the time of day. Lines wait while no link is up. Ends at the end of the input, once as\n"
    "many packages came as lines were sent, or at Ctrl-C. Diagnostics go to standard error.\n\n";

struct LinkArguments {
  std::vector<std::string> servers;
  bool hex = false;
  LinkOptions options;
};

LinkOptions MakeOptions(const LinkArguments& arguments) {
  LinkOptions options = arguments.options;
  for (const std::string& server : arguments.servers) {
    options.servers.push_back(ParseEndpoint(server));
  }
  if (arguments.hex) options.style = BodyStyle::kHex;
  return options;
}

int Link(const LinkArguments& arguments) {
  CatchInterrupts();
  LinkSession session(MakeOptions(arguments));
  const int status = session.Run();
  if (session.IsReading()) {
    // The reader sits in a read of the standard input that no portable means can end: it cannot be
    // joined, and flushing all streams would wait for it. The client has ended by now.
    std::fflush(stdout);
    std::_Exit(status);
  }
  return status;
}

}  // namespace

void AddLinkCommand(CLI::App* program, int* status) {
  CLI::App* const command = program->add_subcommand("link", kHelp);
  const auto arguments = std::make_shared<LinkArguments>();
  LinkOptions& options = arguments->options;
  command
      ->add_option("SERVER", arguments->servers,
                   "1 to 5 servers with dotted addresses, in the order in which they are tried")
      ->check(FindDottedEndpointFault)
      ->type_name("HOST:PORT")
      ->expected(1, 5)
      ->required();
  command->add_flag("--hex", arguments->hex, "Print all bodies as hex digits");
  command
      ->add_option("--wait", options.answer_wait_sec,
                   "Seconds that answers may take after the end of the input; status 1 when\n"
                   "fewer packages than lines came. 0: does not wait")
      ->transform(DecimalNumber(0, kLongestWaitSec))
      ->capture_default_str();
  command
      ->add_option("--connect-wait", options.connect_wait_sec,
                   "Seconds that a link may take to come up; status 1 when none does")
      ->transform(DecimalNumber(1, kLongestWaitSec))
      ->capture_default_str();
  command->footer(std::string(kDetails) + kExitStatusHelp);
  command->callback([arguments, status] { *status = Link(*arguments); });
}
