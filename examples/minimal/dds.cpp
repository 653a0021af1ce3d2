// Starts the process's DDS RMI runtime as a client, and stops it.

#include <kvr/api/mdw/NQ_DDS_RMI.h>

#include <iostream>

int main() {
    kvr::api::mdw::NQ_DDS_RMI_RUNTIME runtime;
    if (runtime.startRUNTIME(true) != 0) { // the system log has the reason
        std::cerr << "no DDS domain\n";
        return 1;
    }
    std::cout << "this process takes part in the default DDS domain\n";
    // Here the application creates its proxies with DDS RMI.
    return runtime.stopRUNTIME() ? 0 : 1;
}
