// Prints the program's name, its directory, and whether another process of the same program holds
// the lock. With the argument "hold" it then keeps the lock until it is killed.

#include <kvr/api/sys/NQ_System.h>

#include <cstring>
#include <iostream>

#include <unistd.h>

int main(int argc, char** argv) {
    using kvr::api::sys::NQ_System;
    std::cout << "name " << NQ_System::getAppName() << '\n'
              << "directory " << NQ_System::getAppDir() << '\n'
              << "another " << NQ_System::appAlreadyRunning() << std::endl;
    while (argc > 1 && std::strcmp(argv[1], "hold") == 0)
        pause();
    return 0;
}
