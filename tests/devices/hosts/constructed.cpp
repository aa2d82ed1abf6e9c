// A library whose constructor has its program play.

extern "C" void tqtest_construct();

[[gnu::constructor]] static void construct() {
    tqtest_construct();
}
