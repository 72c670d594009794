// The raw texts of the drafts' enumerations.

#include <zem/Core/CustomActionResult.h>
#include <zem/Core/DraftManagerState.h>
#include <zem/Core/DraftQueue.h>
#include <zem/Core/DraftQueueItem.h>

#include <gtest/gtest.h>

#include <Core/RawTexts.h>

namespace {

using namespace zem;
using test::expectRawTexts;

TEST(DraftActionStatus, CrossesAsItsRawText) {
    expectRawTexts<DraftActionStatus>({
        {DraftActionStatus::pending, "pending"},
        {DraftActionStatus::uploading, "uploading"},
        {DraftActionStatus::error, "error"},
        {DraftActionStatus::completed, "completed"},
    });
}

TEST(DraftActionOperationType, CrossesAsItsRawText) {
    expectRawTexts<DraftActionOperationType>(
        {
            {DraftActionOperationType::create, "create"},
            {DraftActionOperationType::update, "update"},
            {DraftActionOperationType::delete_, "delete"},
            {DraftActionOperationType::custom, "custom"},
        },
        {"delete_", "remove"});
}

TEST(DraftQueueState, CrossesAsItsRawText) {
    expectRawTexts<DraftQueueState>({
        {DraftQueueState::started, "started"},
        {DraftQueueState::stopped, "stopped"},
        {DraftQueueState::error, "error"},
        {DraftQueueState::waiting, "waiting"},
    });
}

TEST(DraftQueueItemOperationType, CrossesAsItsRawTextWhichIsNotTheCasesName) {
    expectRawTexts<DraftQueueItemOperationType>(
        {
            {DraftQueueItemOperationType::ItemAdded, "added"},
            {DraftQueueItemOperationType::ItemUploading, "uploading"},
            {DraftQueueItemOperationType::ItemUpdated, "updated"},
            {DraftQueueItemOperationType::ItemDeleted, "deleted"},
            {DraftQueueItemOperationType::ItemCompleted, "completed"},
            {DraftQueueItemOperationType::ItemFailed, "failed"},
            {DraftQueueItemOperationType::QueueStarted, "started"},
            {DraftQueueItemOperationType::QueueStopped, "stopped"},
        },
        {"ItemAdded", "ItemUploading", "ItemUpdated", "ItemDeleted", "ItemCompleted", "ItemFailed",
         "QueueStarted", "QueueStopped"});
}

TEST(DraftQueueItemOperationType, StartedIsQueueStarted) {
    EXPECT_EQ(tessel::fromAny<DraftQueueItemOperationType>("started"),
              DraftQueueItemOperationType::QueueStarted);
}

TEST(ProcessActionResult, CrossesAsItsRawText) {
    expectRawTexts<ProcessActionResult>(
        {
            {ProcessActionResult::actionError, "ERROR"},
            {ProcessActionResult::actionSucceeded, "SUCCESS"},
            {ProcessActionResult::noActionToProcess, "NO_ACTION_TO_PROCESS"},
            {ProcessActionResult::actionAlreadyProcessing, "ACTION_ALREADY_PROCESSING"},
            {ProcessActionResult::networkError, "NETWORK_ERROR"},
            {ProcessActionResult::blockedOnError, "BLOCKED_ON_ERROR"},
        },
        {"noActionToProcess", "NO ACTION TO PROCESS", "FAILURE"});
}

TEST(CustomActionResultType, CrossesAsItsRawText) {
    expectRawTexts<CustomActionResultType>(
        {
            {CustomActionResultType::success, "SUCCESS"},
            {CustomActionResultType::failure, "FAILURE"},
        },
        {"ERROR"});
}

TEST(CustomActionErrorType, CrossesAsItsRawText) {
    expectRawTexts<CustomActionErrorType>(
        {
            {CustomActionErrorType::networkError, "NETWORK_ERROR"},
            {CustomActionErrorType::clientError, "CLIENT_ERROR"},
        },
        {"networkError", "SERVER_ERROR"});
}

} // namespace
