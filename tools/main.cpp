// trv: fuse bursts, run the demo and the evaluation, and the stand-alone
// retinex and tone operations, from the command line.
#include <exception>
#include <iostream>

#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"trv: low-light burst fusion of YUV camera frames"};
    app.require_subcommand(1);
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
