#include "console/console.h"

int main(int argc, char** argv) { return tr::consoleMain(argc, argv); }
