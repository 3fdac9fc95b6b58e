/// The columns of a call record, in the order in which they are loaded and written.
#pragma once

#include <cstddef>

/// Which party's trunk the calls are rated for.
enum class call_side { ingress, egress };

/// "ingress" or "egress".
[[nodiscard]] constexpr const char* side_name(call_side side) {
  return side == call_side::ingress ? "ingress" : "egress";
}

inline constexpr std::size_t kCdrColumns = 128;
inline constexpr std::size_t kCdrColumnsWithQ850 = 130;

inline constexpr const char* kCdrColumnList =
    "connection_type,session_id,release_cause,start_time_of_date,answer_time_of_date,"
    "release_tod,minutes_west_of_greenwich_mean_time,release_cause_from_protocol_stack,"
    "binary_value_of_release_cause_from_protocol_stack,first_release_dialogue,"
    "trunk_id_origination,voip_protocol_origination,origination_source_number,"
    "origination_source_host_name,origination_destination_number,"
    "origination_destination_host_name,origination_call_id,"
    "origination_remote_payload_ip_address,origination_remote_payload_udp_address,"
    "origination_local_payload_ip_address,origination_local_payload_udp_address,"
    "origination_codec_list,origination_ingress_packets,origination_egress_packets,"
    "origination_ingress_octets,origination_egress_octets,origination_ingress_packet_loss,"
    "origination_ingress_delay,origination_ingress_packet_jitter,trunk_id_termination,"
    "voip_protocol_termination,termination_source_number,termination_source_host_name,"
    "termination_destination_number,termination_destination_host_name,termination_call_id,"
    "termination_remote_payload_ip_address,termination_remote_payload_udp_address,"
    "termination_local_payload_ip_address,termination_local_payload_udp_address,"
    "termination_codec_list,termination_ingress_packets,termination_egress_packets,"
    "termination_ingress_octets,termination_egress_octets,termination_ingress_packet_loss,"
    "termination_ingress_delay,termination_ingress_packet_jitter,final_route_indication,"
    "routing_digits,call_duration,pdd,ring_time,callduration_in_ms,conf_id,call_type,"
    "ingress_id,ingress_client_id,ingress_client_rate_table_id,ingress_client_currency_id,"
    "ingress_client_rate,ingress_client_currency,ingress_client_bill_time,"
    "ingress_client_bill_result,ingress_client_cost,egress_id,egress_rate_table_id,egress_rate,"
    "egress_cost,egress_bill_time,egress_client_id,egress_client_currency_id,"
    "egress_client_currency,egress_six_seconds,egress_bill_minutes,egress_bill_result,"
    "ingress_bill_minutes,ingress_dnis_type,ingress_rate_type,lrn_number_vendor,lrn_dnis,"
    "egress_dnis_type,egress_rate_type,item_id,translation_ani,ingress_rate_id,egress_rate_id,"
    "orig_code,orig_code_name,orig_country,term_code,term_code_name,term_country,"
    "ingress_rate_effective_date,egress_rate_effective_date,egress_erro_string,order_id,"
    "order_type,lnp_dipping_cost,is_final_call,egress_code_asr,egress_code_acd,static_route,"
    "dynamic_route,route_plan,route_prefix,orig_delay_second,term_delay_second,"
    "orig_call_duration,trunk_type,origination_profile_port,termination_profile_port,"
    "o_trunk_type2,o_billing_method,t_trunk_type2,t_billing_method,campaign_id,tax,agent_id,"
    "agent_rate,agent_cost,orig_jur_type,term_jur_type,ring_epoch,end_epoch,paid_user,"
    "rpid_user,timeout_type";

/// The two that follow when the job asks for the Q.850 cause of each call.
inline constexpr const char* kCdrQ850ColumnList = ",q850_cause,q850_cause_string";

/// Positions of the columns that the rating reads or writes.
enum cdr_column : std::size_t {
  kSessionId = 1,
  kStartTimeOfDate = 3,
  kRoutingDigits = 49,
  kCallDuration = 50,
  kIngressClientRate = 60,
  kIngressClientBillTime = 62,
  kIngressClientCost = 64,
  kEgressRate = 67,
  kEgressCost = 68,
  kEgressBillTime = 69,
  kEgressBillMinutes = 74,
  kIngressBillMinutes = 76,
  kIngressDnisType = 77,
  kIngressRateType = 78,
  kLrnDnis = 80,
  kEgressRateType = 82,
  kTranslationAni = 84,
  kIngressRateId = 85,
  kEgressRateId = 86,
  kOrigCode = 87,
  kOrigCodeName = 88,
  kOrigCountry = 89,
  kTermCode = 90,
  kTermCodeName = 91,
  kTermCountry = 92,
  kIngressRateEffectiveDate = 93,
  kEgressRateEffectiveDate = 94,
};
