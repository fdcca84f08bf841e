// qira-wifi: a command-line host of the wireless module. It loads the module
// through the reference host, as a camera's host does, and runs one command.
#include <iostream>
#include <string>
#include <vector>

#include "commands.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  qira::wifi::Streams streams{std::cout, std::cerr};
  const int status = qira::wifi::run_program(args, streams);
  std::cout.flush();
  return status;
}
