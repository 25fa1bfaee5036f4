#include <string>
#include <vector>

#include "platform/program_entry.h"

int main(int argc, char** argv) {
  return genostat::programMain(std::vector<std::string>(argv, argv + argc));
}
