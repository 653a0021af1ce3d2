// Applies UCI sections (one JSON text per argument) in the steps of a management request.
#include <kvr/api/mng/NQ_UBUS.h>

#include <cstring>

int main(int argc, char* argv[]) {
    bool restart = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--restart") == 0) {
            restart = true;
            continue;
        }
        kvr::api::mng::NQ_UBUS section;
        section.init(argv[i]);
        if (!section.checkConfig())
            return 1;
        section.applyConfig();
        if (restart)
            section.restartService();
    }
    return 0;
}
