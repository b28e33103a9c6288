// Starts and ends, with whatever it is linked to.
int main() {}
