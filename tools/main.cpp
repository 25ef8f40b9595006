#include "command_line/tool.h"

int main(int argc, char** argv) { return MD::tool::runMain(argc, argv); }
