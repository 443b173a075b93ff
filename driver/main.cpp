#include "driver/startup.h"

int main(int argc, char** argv)
{
    // Workers may still run: the process ends without unwinding what they use.
    kalix::platform::process_exit(kalix::run_driver(argc, argv));
}
