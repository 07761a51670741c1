#include "KernelTagger.h"

#include <cstddef>
#include <cstdint>
#include <linux/bpf.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using Kel::U8;
using Kel::UniqueFd;

// Of Linux 6.6 and later (linux/bpf.h).
constexpr U8 tcxIngress = 46, tcxEgress = 47;
constexpr int pass = 0, drop = 2;
constexpr U8 loadWord = BPF_LDX | BPF_MEM | BPF_W, set = BPF_ALU64 | BPF_MOV | BPF_K, call = BPF_JMP | BPF_CALL;
constexpr bpf_insn end{ BPF_JMP | BPF_EXIT, 0, 0, 0, 0 };

UniqueFd bpf( int command, bpf_attr& attr ) {
   return UniqueFd( static_cast< int >( syscall( SYS_bpf, command, &attr, sizeof attr ) ) );
}

UniqueFd attached( const char* device, U8 where, const std::vector< bpf_insn >& program ) {
   bpf_attr loading{}, linking{};
   loading.prog_type = BPF_PROG_TYPE_SCHED_CLS;
   loading.insn_cnt = static_cast< unsigned >( program.size() );
   loading.insns = reinterpret_cast< std::uintptr_t >( program.data() );
   loading.license = reinterpret_cast< std::uintptr_t >( "" );
   const UniqueFd loaded = bpf( BPF_PROG_LOAD, loading );
   if( !loaded ) return {};
   linking.link_create.prog_fd = static_cast< unsigned >( loaded.get() );
   linking.link_create.target_ifindex = if_nametoindex( device );
   linking.link_create.attach_type = where;
   return bpf( BPF_LINK_CREATE, linking );
}

}

KernelTagger::KernelTagger( const char* device, Kel::U16 vlan )
    : ingress_( attached( device, tcxIngress, { { loadWord, 2, 1, offsetof( __sk_buff, vlan_tci ), 0 },
                                                { BPF_ALU64 | BPF_AND | BPF_K, 2, 0, 0, 0xfff },
                                                { BPF_JMP | BPF_JEQ | BPF_K, 2, 0, 2, vlan },
                                                { set, 0, 0, 0, drop },
                                                end,
                                                { call, 0, 0, 0, BPF_FUNC_skb_vlan_pop },
                                                { set, 0, 0, 0, pass },
                                                end } ) ),
      egress_( attached( device, tcxEgress, { { set, 2, 0, 0, 0x0081 },   // the TPID, in network byte order
                                              { set, 3, 0, 0, vlan },
                                              { call, 0, 0, 0, BPF_FUNC_skb_vlan_push },
                                              { set, 0, 0, 0, pass },
                                              end } ) ) {}
