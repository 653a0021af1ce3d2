// Carries out commands that a supervising process writes to standard input, one per line, until
// "stop".

#include <kvr/api/StdInReader.h>
#include <kvr/api/iot/Subject.h>

#include <iostream>

class Commands : public kvr::api::iot::Observer<StdInReader> {
public:
    explicit Commands(bool& stop) : stop_(stop) {}
    void update(StdInReader* reader) override {
        if (reader->getLastLine() == "stop")
            stop_ = true;
        else
            std::cout << "unknown command\n";
    }

private:
    bool& stop_;
};

int main() {
    bool stop = false;
    Commands commands(stop);
    StdInReader reader;
    reader.attach(&commands);
    reader.loop(stop); // announces every line, and echoes it to standard output
}
