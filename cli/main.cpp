// halvenmark-cli: the terminal client.

#include "climain.h"

int main(int argc, char **argv)
{
    return CliMain::run(argc, argv);
}
