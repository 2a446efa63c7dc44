// A library for the loader tests; PROBE_VALUE tells its builds apart.
extern "C" int platform_probe_value() {
  return PROBE_VALUE;
}
