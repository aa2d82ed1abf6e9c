#include <AudioToolbox/AudioToolbox.h>

int main(void) {
    AUGraph graph = 0;
    return NewAUGraph(&graph) == 0 && DisposeAUGraph(graph) == 0 ? 0 : 1;
}
