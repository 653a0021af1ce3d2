// Mounts a removable device while it is plugged in, until a line arrives on standard input.
// Usage: automount DEVICE DIRECTORY, such as: automount sda1 /mnt/stick

#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>

#include <iostream>
#include <stdexcept>
#include <string>

using kvr::api::file::NQ_FileUtils;

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const std::string directory = argv[2];
    try {
        // The callbacks run on the object's thread. They must not throw.
        const kvr::api::AutoMount media(
            argv[1], directory,
            [&] { std::cout << NQ_FileUtils::getFilesFromDir(directory).size() << " entries\n"; },
            [] { std::cout << "ejected\n"; });
        std::string line;
        std::getline(std::cin, line);
        // An object destroyed right after its construction may hang: its thread needs time to
        // start.
        kvr::api::datetime::NQ_Time::delay(1000);
    } catch (const std::runtime_error& error) { // the directory cannot be created
        std::cerr << error.what() << '\n';
        return 1;
    }
}
