// The switch for packed arithmetic. Every result follows the scalar rules, so that there is nothing to switch: the environment
// variable SSE has no effect but its message.
#include <cstdio>
#include <cstdlib>

#include "ko/lifecycle.h"
#include "word.h"

void KoSSEInit(void) {
    const char *word = std::getenv("SSE");
    if (word != nullptr && ko::same_word(word, "false")) {
        std::fputs("[INFO] SSE2 disabled\n", stderr);
    }
}

int32_t KoSSEIsAvailable(void) { return 0; }

// Denormal numbers get no special treatment anywhere: the floating-point environment is the host's.
int32_t KoSSESetDenormalAsZeroFlag(void) { return 0; }
