/* Calls each function through a slot of its own; a first call binds it. */
#define FUNCTION(n) int race_##n(void);
#define CALL(n) +race_##n()
#define EIGHT(each, n) \
    each(n##0) each(n##1) each(n##2) each(n##3) each(n##4) each(n##5) each(n##6) each(n##7)
#define ALL(each)  \
    EIGHT(each, 0) \
    EIGHT(each, 1) \
    EIGHT(each, 2) EIGHT(each, 3) EIGHT(each, 4) EIGHT(each, 5) EIGHT(each, 6) EIGHT(each, 7)

ALL(FUNCTION)

__attribute__((visibility("default"))) int race_sum(void) {
    return 0 ALL(CALL);
}
