#include <iostream>

#include "commands.h"

int main(int argc, char** argv) { return cimcli::run(argc, argv, std::cout, std::cerr); }
