// The desktop program's entry point.
#include "app/run_operation.h"

int main(int argc, char** argv) {
    return orvanta::app::RunProgram(argc, argv);
}
