/*
 * What LeakSanitizer is told in every test: the leaks that the design keeps, by the function that
 * leaves the object behind. Anything else that it reports is a defect.
 *
 * It is told so inside the program, since a private world may hide the file that would say it.
 */

extern "C" {
const char* __lsan_default_suppressions();
const char* __lsan_default_options();

const char* __lsan_default_suppressions() {
    return
        // The replies of a busy server: each attempt's takes the place of the last one, unreleased.
        "leak:ChangerServerEjectDisc\n"
        "leak:ChangerServerMountDiscInDrive\n"
        // The run-loop source of a notification connection that ended: the next one's takes its
        // place.
        "leak:ConnectServerNotificationSocket\n"
        // The list of known changers that each "changer list" notification is compared with.
        "leak:HandleRemovedChangers\n"
        // The progress record of a build whose status could not be cleared at the server.
        "leak:StartStatusReportingForFullFSCache\n";
}

const char* __lsan_default_options() {
    return "print_suppressions=0";
}
}
