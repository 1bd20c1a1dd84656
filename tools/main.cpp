// trv: fuse bursts, run the demo and the evaluation, and the stand-alone
// retinex and tone operations, from the command line.
#include <exception>
#include <iostream>

#include "commands.h"
#include "trv/trv.h"

namespace {

void ignoreLogLine(const char*, const char*, void*) {}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"trv: low-light burst fusion of YUV camera frames"};
    app.require_subcommand(1);
    app.fallthrough();  // --verbose also after the subcommand
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Show the library's own log lines (E/BMQ: ...) on stderr");
    // The library's log lines are for integrators; the tool prints its own.
    app.parse_complete_callback([&verbose] { TRV_SetLogHandler(verbose ? nullptr : ignoreLogLine, nullptr); });
    trvtool::addFuseCommand(app);
    trvtool::addDemoCommand(app);
    trvtool::addEvalCommand(app);
    trvtool::addStandaloneCommands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    } catch (const std::exception& e) {
        std::cerr << "trv: error: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
