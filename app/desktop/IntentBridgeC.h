/* The application's answers to the system's intents as a plain C interface, so that the App Intents,
 * which only Swift can declare, reach the running application without knowing any C++ type.
 *
 * The header is plain C on purpose: Swift imports it through a module map as C, and C++ includes it
 * through app/desktop/IntentBridge.hpp, which gives the functions C linkage.
 *
 * Threads: the ask and open calls run on the main thread (the App Intents' main actor), where the
 * application's stores live. A question, once asked, owns everything it needs; waiting for its
 * answer may, and for a fresh reading should, happen on another thread.
 *
 * Strings are UTF-8 in memory from malloc; an answer and everything in it is released with
 * brimlet_intent_free_answer. */
#pragma once

#include <stddef.h>

typedef enum BrimletIntentStatus {
    BrimletIntentStatusAnswered = 0,
    /* No running application is installed: the process is starting or ending. */
    BrimletIntentStatusUnavailable = 1,
    /* The reading did not finish within the time the caller allowed. */
    BrimletIntentStatusTimedOut = 2,
} BrimletIntentStatus;

typedef struct BrimletIntentAnswer {
    BrimletIntentStatus status;
    /* "Memory in use": the whole percent of physical memory in use; 0 for the other question or a
     * failure. */
    int percent;
    /* What the system says or shows. Answered: the product's dialog; otherwise a short explanation
     * fit to show as the intent's error. Never NULL. */
    char* dialog;
    /* "What uses the most memory": the applications' names, largest first; NULL with a count of 0
     * otherwise. */
    char** names;
    size_t nameCount;
} BrimletIntentAnswer;

/* One question under way, with the reading it waits for. */
typedef struct BrimletIntentQuestion BrimletIntentQuestion;

/* Main thread. A new engine reads memory in use and physical memory once. */
BrimletIntentQuestion* brimlet_intent_ask_memory_in_use(void);
/* Main thread. The three applications using the most memory, from the monitor's snapshot when it
 * is at most 2 seconds old, else from one new reading. */
BrimletIntentQuestion* brimlet_intent_ask_top_memory_apps(void);
/* Any thread. Waits at most timeoutSeconds for the question's reading, then answers and releases
 * the question (a reading still running is finished and dropped in the background). Never NULL. */
BrimletIntentAnswer* brimlet_intent_wait_answer(BrimletIntentQuestion* question, double timeoutSeconds);
void brimlet_intent_free_answer(BrimletIntentAnswer* answer);

/* Main thread. Records the request time (the reopen it causes must not open the dashboard), then
 * opens the cleanup window now or as soon as the application can open windows. Answered, or
 * Unavailable when no application is installed. */
BrimletIntentStatus brimlet_intent_open_cleanup(void);

/* Any thread. The explanation of a failed status, fit to show as the intent's error; "" for
 * Answered. A static string: never freed. */
const char* brimlet_intent_status_text(BrimletIntentStatus status);
