// core/startup.h: the command line and the start-up sequence.
#ifndef CORE_STARTUP_H
#define CORE_STARTUP_H

// Where the configuration is when the command line does not say.
inline constexpr const char *kMainCoreConfigDir = "/usr/local/korvo/etc";

// Print the banner box and the usage text to standard output.
void MainCore_Banner();
void MainCore_Usage(const char *progname);

// Reads the configuration, opens both sockets, runs the program's own start-up and announces the
// process to its parents.  1, or the exit status: 0 after a usage request or a configuration
// failure, otherwise the result of the socket layer or of the program.  Everything is logged where
// it happens.
int MainCore_Startup(int argc, char **argv);

#endif
