// Linked with one whole layer and the layers below it: if the layer calls
// into a layer above, this program fails to link. It is never run.
int main() { return 0; }
