// qira-start-floor: the least a C++ program costs to start on the camera.
// It names libstdc++ as every program and host of the wireless module must
// (the module's interface passes std::string), builds one string and ends.
// bench_air times it beside iwconfig (a C program) and qira-wifi, so that
// the share of qira-wifi's start-up that comes with C++ itself is measured,
// not guessed.
#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  const std::string name(argc > 0 ? argv[0] : "");
  return name.empty() ? 1 : 0;
}
