// The leak checker of a build with sanitizers reads this: what the toolkit's offscreen platform, on
// which the tests run, leaves behind at their end is not theirs.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libqoffscreen.so\n";
}
