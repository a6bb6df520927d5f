#include "EcallParams.h"

namespace {

EcallParam Flag(bool value) {
    return {.boolValue = value, .intValue = 0, .strValue = ""};
}

EcallParam Number(int32_t value) {
    return {.boolValue = false, .intValue = value, .strValue = ""};
}

EcallParam Text(const char* value) {
    return {.boolValue = false, .intValue = 0, .strValue = value};
}

}  // namespace

EcallParams EcallParamDefaults() {
    // In the order of their numbers; times in the unit that the comment gives.
    return {
        Text("ecall_trigger.wav"),       // 0 PROMPT_ECALL_TRIGGER
        Text("ecall_cancelled.wav"),     // 1 PROMPT_ECALL_CANCELLED
        Text("ecall_dialing.wav"),       // 2 PROMPT_ECALL_DIALING
        Text("ecall_msd.wav"),           // 3 PROMPT_ECALL_MSD_TRANSFER
        Text("ecall_msd_complete.wav"),  // 4 PROMPT_ECALL_MSD_TRANSFER_COMPLETE
        Text("ecall_not_possible.wav"),  // 5 PROMPT_ECALL_NOT_POSSIBLE
        Text("ecall_call_back.wav"),     // 6 PROMPT_ECALL_RECEIVING_CALL
        Text("ecall_end.wav"),           // 7 PROMPT_ECALL_END
        Text("ecall_error.wav"),         // 8 PROMPT_ECALL_ERROR
        Flag(true),                      // 9 PHONES_NUMBERS_FROM_USIM
        Text("112"),                     // 10 ECALL_PHONE_NUMBER
        Text("+33100000000"),            // 11 ECALL_TEST_PHONE_NUMBER
        Flag(false),                     // 12 ECALL_PUSH_MODE
        Number(7200),                    // 13 ECALL_TIMER_T1_VALUE, s
        Number(7200),                    // 14 ECALL_TIMER_T2_VALUE, s
        Number(3600),                    // 15 ECALL_TIMER_T9_VALUE, s
        Number(1),                       // 16 ECALL_STANDARD_MODE
        Number(60),                      // 17 EGTS_INT_MEM_TRANSMIT_INTERVAL, min
        Number(10),                      // 18 EGTS_INT_MEM_TRANSMIT_ATTEMPTS
        Text("+74950000000"),            // 19 EGTS_TEST_NUMBER
        Number(120),                     // 20 EGTS_POST_TEST_REGISTRATION_TIME, s
        Number(300),                     // 21 EGTS_ECALL_TEST__END_DISTANCE, m
        Number(1),                       // 22 EGTS_GNSS_DATA_RATE, Hz
        Number(15),                      // 23 EGTS_GNSS_MIN_ELEVATION, degrees
        Text("000000000000000"),         // 24 EGTS_UNIT_IMEI
        Number(8),                       // 25 EGTS_UNIT_MIC_LEVEL
        Number(8),                       // 26 EGTS_UNIT_SPK_LEVEL
        Flag(false),                     // 27 EGTS_ECALL_NO_AUTOMATIC_TRIGGERING
        Number(60),                      // 28 EGTS_ECALL_CCFT, min
        Number(2000),                    // 29 EGTS_ECALL_INVITATION_SIGNAL_DURATION, ms
        Number(2000),                    // 30 EGTS_ECALL_SEND_MSG_PERIOD, ms
        Number(5000),                    // 31 EGTS_ECALL_AL_ACK_PERIOD, ms
        Number(20),                      // 32 EGTS_ECALL_MSD_MAX_TRANSMISSION_TIME, s
        Number(8),                       // 33 EGTS_ECALL_NAD_DEREGISTRATION_TIMER, h
        Number(5),                       // 34 EGTS_ECALL_DIAL_DURATION, min
        Number(10),                      // 35 EGTS_ECALL_MANUAL_DIAL_ATTEMPTS
        Number(10),                      // 36 EGTS_ECALL_AUTO_DIAL_ATTEMPTS
        Flag(true),                      // 37 EGTS_ECALL_MANUAL_CAN_CANCEL
        Text("112"),                     // 38 EGTS_ECALL_SMS_FALLBACK_NUMBER
        Text("00000000000000000"),       // 39 EGTS_VEHICLE_VIN
        Number(0),                       // 40 EGTS_VEHICLE_PROPULSION_STORAGE_TYPE, a bit each
        Number(0),                       // 41 EGTS_VEHICLE_TYPE
        Flag(false),                     // 42 ERA_SIM_DUAL_PROFILE_USED
        Number(20),                      // 43 ERA_CALL_AUTO_ANSWER_TIME, min
        Number(20),                      // 44 ERA_NUMBER_OF_MSD_STORED
        Number(1024),                    // 45 APP_TRACE_FILE_SIZE_IN_KB
        Number(2),                       // 46 APP_NUMBER_OF_TRACE_FILES
        Flag(true),                      // 47 APP_RESTORE_CONTEXT_ON_BOOT
        Flag(false),                     // 48 APP_DATA_ENABLE_DURING_ECALL
        Number(3600),                    // 49 ECALL_TIMER_CLEARMSD_VALUE, s
        Flag(true),                      // 50 APP_T9_TIMER_FORCED_AT_ZERO_FOR_TEST_MODE
        Flag(true),                      // 51 APP_EXIT_TESTMODE_AFTER_ECALL_DEACTIVATION
        Flag(true),                      // 52 APP_USE_GNSS_FOR_MSD_TIMESTAMP
        Number(0),                       // 53 APP_AUDIO_CONFIG_NUMBER
    };
}
