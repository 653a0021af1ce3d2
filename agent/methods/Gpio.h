#ifndef TAVO_AGENT_GPIO_H
#define TAVO_AGENT_GPIO_H

#include "methods/Method.h"

namespace agent {

/// gpio.get: reads an input, the output, the temperature or the supply voltage.
class GpioGet : public Method {
public:
    GpioGet();

private:
    Json run(const Params& params) override;
};

/// gpio.set: switches an LED or the output.
class GpioSet : public Method {
public:
    GpioSet();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
