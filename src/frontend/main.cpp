#include "frontend/run.h"

int main(int argc, char** argv)
{
    return quarnex::run(argc, argv);
}
