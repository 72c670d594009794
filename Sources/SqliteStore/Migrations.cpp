#include <zem/SqliteStore/Migrations.h>

namespace zem {

// Every file passes through every version, so a version that was once shipped is never edited, its
// spelling and comments included. The last three indexes of 240000 cover nothing, because they look
// for record fields under the object-info prefix; 244000 replaces them.
const std::map<std::int32_t, std::vector<std::string>>& MIGRATIONS() {
    static const auto& migrations = *new std::map<std::int32_t, std::vector<std::string>>{
        {240000,
         {
             R"(-- The primary table for data in the DEFAULT segment
CREATE TABLE zem_data (
  key TEXT PRIMARY KEY,
  data TEXT NOT NULL,
  metadata JSON
);)",
             R"(-- The primary table for data in segments other than DEFAULT
-- and which do not have a dedicated table
CREATE TABLE zem_internal (
  namespace TEXT NOT NULL,
  key TEXT NOT NULL,
  data TEXT NOT NULL,
  metadata JSON,
  PRIMARY KEY (namespace, key)
);)",
             R"(-- The table for draft actions created by the draft-aware mobile environment
CREATE TABLE zem_env_drafts (
  key TEXT PRIMARY KEY,
  data TEXT NOT NULL
);)",
             R"(-- The table for draft local to server id mappings
CREATE TABLE zem_env_draft_id_map (
  key TEXT PRIMARY KEY,
  data TEXT NOT NULL
);)",
             R"(CREATE INDEX idx_zem_data_rimvo_record_id
ON zem_data (json_extract(data, '$.id'))
WHERE
  key LIKE 'Rimvo::RecordRepresentation:%'
  AND json_extract(data, '$.id') IS NOT NULL;)",
             R"(CREATE INDEX idx_zem_data_rimvo_record_apiname
ON zem_data (json_extract(data, '$.apiName'))
WHERE
  key LIKE 'Rimvo::RecordRepresentation:%'
  AND json_extract(data, '$.apiName') IS NOT NULL;)",
             R"(CREATE INDEX idx_zem_data_rimvo_objectinfo_apiname
ON zem_data (json_extract(data, '$.apiName'))
WHERE
  key LIKE 'Rimvo::ObjectInfoRepresentation:%'
  AND json_extract(data, '$.apiName') IS NOT NULL;)",
             R"(CREATE INDEX idx_zem_data_rimvo_objectinfo_keyprefix
ON zem_data (json_extract(data, '$.keyPrefix'))
WHERE
  key LIKE 'Rimvo::ObjectInfoRepresentation:%'
  AND json_extract(data, '$.keyPrefix') IS NOT NULL;)",
             R"(CREATE INDEX idx_zem_data_rimvo_serviceresource_relatedrecordid
ON zem_data (json_extract(data, '$.fields.RelatedRecordId.value'))
WHERE
  key LIKE 'Rimvo::ObjectInfoRepresentation:%'
  AND json_extract(data, '$.apiName') = 'ServiceResource';)",
             R"(CREATE INDEX idx_zem_data_rimvo_assigned_resource_service_appointment_id
ON zem_data(json_extract(data, '$.fields.ServiceAppointmentId.value'))
WHERE
  key LIKE 'Rimvo::ObjectInfoRepresentation:%'
  AND json_extract(data, '$.apiName') = 'AssignedResource';)",
             R"(CREATE INDEX idx_zem_data_rimvo_assigned_resource_service_resource_id
ON zem_data(json_extract(data, '$.fields.ServiceResourceId.value'))
WHERE
  key LIKE 'Rimvo::ObjectInfoRepresentation:%'
  AND json_extract(data, '$.apiName') = 'AssignedResource';)",
         }},
        {244000,
         {
             "DROP INDEX IF EXISTS idx_zem_data_rimvo_serviceresource_relatedrecordid;",
             "DROP INDEX IF EXISTS idx_zem_data_rimvo_assigned_resource_service_appointment_id;",
             "DROP INDEX IF EXISTS idx_zem_data_rimvo_assigned_resource_service_resource_id;",
             R"(CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_serviceresource_relatedrecordid
ON zem_data (json_extract(data, '$.fields.RelatedRecordId.value'))
WHERE
  key LIKE 'Rimvo::RecordRepresentation:%'
  AND json_extract(data, '$.apiName') = 'ServiceResource';)",
             R"(CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_assignedresource_serviceappointmentid
ON zem_data(json_extract(data, '$.fields.ServiceAppointmentId.value'))
WHERE
  key LIKE 'Rimvo::RecordRepresentation:%'
  AND json_extract(data, '$.apiName') = 'AssignedResource';)",
             R"(CREATE INDEX IF NOT EXISTS idx_zem_data_rimvo_assignedresource_serviceresourceid
ON zem_data(json_extract(data, '$.fields.ServiceResourceId.value'))
WHERE
  key LIKE 'Rimvo::RecordRepresentation:%'
  AND json_extract(data, '$.apiName') = 'AssignedResource';)",
         }},
    };
    return migrations;
}

} // namespace zem
