#include "suite/ArdScan/Policy.h"

#include "platform/Text.h"

namespace vlt::scan
{

Policy Policy::FromRecord(const AsConfigRecord& record)
{
    Policy policy;
    policy.firstAction = record.firstAction;
    policy.secondAction = record.secondAction;
    policy.moveFolder[0] = FieldText(record.moveFolder);
    policy.moveFolder[1] = FieldText(record.moveFolder2nd);
    policy.renameExtension[0] = FieldText(record.renameExtension);
    policy.renameExtension[1] = FieldText(record.renameExtension2nd);
    policy.backup = {record.cleanBackup != 0, record.encodedBackup == AS_ENCODED_BACKUP,
                     WString(FieldText(record.backupFolder))};
    policy.directionMask = record.directionMask;
    if (record.extractSizeLimit != 0xFFFFFFFFu)
        policy.sizeLimit = record.extractSizeLimit;
    policy.network = record.monitorNetwork != 0;
    policy.filter = {record.spywareMask, record.packTrap != 0};
    policy.extensions = CExtensionList(FieldText(record.extensionList));
    policy.callbacks = {record.lastScanCallback, record.lastScanContext, record.detectionCallback,
                        record.detectionContext, record.spywareCallback, record.spywareContext};
    return policy;
}

} // namespace vlt::scan
