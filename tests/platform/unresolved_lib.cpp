// Refers to a function that nothing defines, so only lazy binding loads it.
extern "C" int platform_probe_missing_function();

extern "C" int platform_probe_value() {
  return platform_probe_missing_function();
}
