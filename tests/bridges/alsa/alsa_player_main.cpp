#include "alsa_player.h"

int main(int count, char** arguments) {
    return playAlsa(count, arguments);
}
