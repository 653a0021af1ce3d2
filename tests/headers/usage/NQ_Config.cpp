// Every way to create an object without naming a root.
#include <kvr/api/mng/NQ_Config.h>

using kvr::api::mng::NQ_Config;

struct Placement {
    int number;
    NQ_Config config;
};

NQ_Config made() { return {}; }

void make() {
    NQ_Config plain;
    NQ_Config braces{};
    NQ_Config copied = {};
    NQ_Config array[2] = {};
    Placement aggregate = {};
    Placement partly = {1, {}};
    NQ_Config* allocated = new NQ_Config[2]();
    NQ_Config rooted("/srv/apps");
    delete[] allocated;
    (void)plain, (void)braces, (void)copied, (void)array, (void)aggregate, (void)partly,
        (void)rooted;
}
